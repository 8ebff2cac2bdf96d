#include "tests/rows/OraclePattern.h"

#include <algorithm>
#include <tuple>

namespace RowRules {
namespace {

bool Contains(const std::vector<Names>& all, const Names& one) {
    return std::find(all.begin(), all.end(), one) != all.end();
}

Names Beginning(const Names& path, std::size_t size) {
    return Names(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(std::min(path.size(), size)));
}

}  // namespace

bool BeginsWith(const Names& path, const Names& beginning) {
    return path.size() >= beginning.size() && std::equal(beginning.begin(), beginning.end(), path.begin());
}

Names Branch(const Names& joint, const Names& path) {
    return Beginning(path, joint.size() + 1);
}

const Element* Above(const Element* element, std::size_t levels) {
    for (; levels > 0 && element != nullptr; --levels) element = element->parent;
    return element;
}

Pattern::Pattern(const std::vector<Column>& columns) {
    for (const Column& column : columns) AddOperand(column);
    FindJoints();
}

void Pattern::AddOperand(const Column& column) {
    const bool required = !column.isOptional && column.kind != Kind::Attribute;
    for (std::size_t i = 0; i < operands.size(); ++i) {
        Operand& known = operands[i];
        if (std::tie(known.kind, known.path, known.above) != std::tie(column.kind, column.path, column.above))
            continue;
        known.required |= required;
        return operandOf.push_back(i);
    }
    operandOf.push_back(operands.size());
    operands.push_back({column.kind, column.path, column.above, required});
}

void Pattern::FindJoints() {
    for (const Operand& operand : operands) {
        for (std::size_t size = 0; size <= operand.path.size(); ++size) {
            const Names path = Beginning(operand.path, size);
            if (!Contains(paths, path)) paths.push_back(path);
        }
    }
    for (const Names& path : paths)
        if (BranchesOf(path).size() >= 2) joints.push_back(path);
    if (joints.empty()) joints.push_back(operands.front().path);
    std::stable_sort(joints.begin(), joints.end(),
                     [](const Names& a, const Names& b) { return a.size() > b.size(); });
}

std::vector<Names> Pattern::BranchesOf(const Names& joint) const {
    std::vector<Names> branches;
    for (const Operand& operand : operands) {
        const Names branch = Branch(joint, operand.path);
        if (BeginsWith(operand.path, joint) && !Contains(branches, branch)) branches.push_back(branch);
    }
    return branches;
}

bool Pattern::IsJoint(const Names& path) const {
    return Contains(joints, path);
}

bool Pattern::JointAbove(Names& path) const {
    while (!IsJoint(path)) {
        if (path.empty()) return false;
        path.pop_back();
    }
    return true;
}

std::vector<std::size_t> Pattern::OperandsOf(const Names& branch, const Names& joint) const {
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < operands.size(); ++i)
        if (BeginsWith(operands[i].path, joint) && Branch(joint, operands[i].path) == branch)
            found.push_back(i);
    return found;
}

bool Pattern::AnyNamed() const {
    return std::any_of(operands.begin(), operands.end(), [](const auto& o) { return !o.path.empty(); });
}

std::size_t Facts::DepthOf(const Element* element) {
    return element->parent == nullptr ? 0 : 1 + DepthOf(element->parent);
}

const Element* Facts::EndOf(const Operand& operand, const Element* element) {
    const auto above = static_cast<std::size_t>(operand.above);
    return above < DepthOf(element) ? Above(element, above) : element;
}

bool Facts::IsKnown(const Operand& operand, const Element* element) const {
    if (operand.kind == Kind::Text) return ends_.contains(element);
    return operand.kind != Kind::NodeEnd || ends_.contains(EndOf(operand, element));
}

std::string Facts::Text(const Operand& operand, const Element& element) const {
    switch (operand.kind) {
        case Kind::Text: return element.text;
        case Kind::NodeNumber: return std::to_string(element.number);
        case Kind::Attribute: {
            const auto found = element.attributes.find(Column::kAttribute);
            return found == element.attributes.end() ? "" : found->second;
        }
        case Kind::NodeEnd: {
            const bool isAbove = static_cast<std::size_t>(operand.above) < DepthOf(&element);
            return isAbove ? std::to_string(ends_.at(EndOf(operand, &element))) : "0";
        }
    }
    return {};
}

}  // namespace RowRules
