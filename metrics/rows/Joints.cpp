// Where rows gather: the second half of compiling, once all paths are known.
#include <algorithm>

#include "metrics/rows/RowCompiler.h"

namespace Metrics::detail {
namespace {

using Nodes = std::vector<PatternNode>;

PatternNode& At(Nodes& nodes, int index) {
    return nodes[static_cast<std::size_t>(index)];
}
const PatternNode& At(const Nodes& nodes, int index) {
    return nodes[static_cast<std::size_t>(index)];
}

bool Joins(const PatternNode& node) {
    return node.children.size() + (node.operands.empty() ? 0 : 1) >= 2;
}

// The branch of `above` through which `node` is reached, 0 for itself; kNone when it is not below.
int BranchTowards(const Nodes& nodes, int above, int node) {
    if (node == above) return 0;
    while (At(nodes, node).depth > At(nodes, above).depth + 1) node = At(nodes, node).parent;
    const auto& children = At(nodes, above).children;
    const auto place = std::find(children.begin(), children.end(), node);
    return place == children.end() ? kNone : 1 + static_cast<int>(place - children.begin());
}

bool IsAncestorOrSelf(const Nodes& nodes, int above, int node) {
    while (At(nodes, node).depth > At(nodes, above).depth) node = At(nodes, node).parent;
    return node == above;
}

int FirstNamed(const Nodes& nodes, int node) {
    while (At(nodes, node).depth > 1) node = At(nodes, node).parent;
    return node;
}

}  // namespace

CompiledRow RowCompiler::Finish() {
    if (!row_.operands.empty()) FindJoints();
    return std::move(row_);
}

void RowCompiler::FindJoints() {
    Nodes& nodes = row_.nodes;
    for (PatternNode& node : nodes) node.isJoint = Joins(node);
    const bool any = std::any_of(nodes.begin(), nodes.end(), [](const auto& node) { return node.isJoint; });
    if (!any) nodes.back().isJoint = true;  // one chain: its end was added last
    // A node stands behind its parent, so that one pass settles what comes from above.
    for (int i = 0; i < static_cast<int>(nodes.size()); ++i) {
        PatternNode& node = At(nodes, i);
        node.joint = node.parent == kNone ? kNone : At(nodes, node.parent).joint;
        if (node.isJoint) DescribeJoint(i);
    }
    for (const Joint& joint : row_.joints) {
        for (std::size_t i = 0; i < row_.operands.size(); ++i) {
            PatternNode& node = At(nodes, row_.operands[i].node);
            node.soughtAround |= node.textField != kNone && node.parent != kNone && !joint.sharesName[i];
        }
    }
}

void RowCompiler::DescribeJoint(int index) {
    const Nodes& nodes = row_.nodes;
    PatternNode& node = At(row_.nodes, index);
    Joint joint;
    joint.node = index;
    joint.depth = node.depth;
    joint.parent = node.joint;
    joint.branches = 1 + static_cast<int>(node.children.size());
    if (joint.parent != kNone)
        joint.branchInParent =
            BranchTowards(nodes, row_.joints[static_cast<std::size_t>(joint.parent)].node, index);
    for (const RowOperand& operand : row_.operands) {
        joint.branchOf.push_back(BranchTowards(nodes, index, operand.node));
        joint.ownPath.push_back(operand.node != kRoot && IsAncestorOrSelf(nodes, operand.node, index));
        joint.sharesName.push_back(index != kRoot && operand.node != kRoot &&
                                   FirstNamed(nodes, operand.node) == FirstNamed(nodes, index));
    }
    joint.operandsOf.resize(static_cast<std::size_t>(joint.branches));
    for (std::uint32_t i = 0; i < row_.operands.size(); ++i) {
        if (joint.branchOf[i] != kNone)
            joint.operandsOf[static_cast<std::size_t>(joint.branchOf[i])].push_back(i);
    }
    // Around the text of a single name is the row's own element.
    const auto isInside = [&](std::uint32_t i) {
        const RowOperand& operand = row_.operands[i];
        return operand.what.kind != Operand::Kind::Text || At(nodes, operand.node).depth > 1;
    };
    for (int branch = 1; branch < joint.branches && index == kRoot; ++branch) {
        const auto& operands = joint.operandsOf[static_cast<std::size_t>(branch)];
        if (std::all_of(operands.begin(), operands.end(), isInside)) joint.labels.push_back(branch);
    }
    joint.allShareName =
        std::find(joint.sharesName.begin(), joint.sharesName.end(), false) == joint.sharesName.end();
    node.joint = static_cast<int>(row_.joints.size());
    row_.joints.push_back(std::move(joint));
}

}  // namespace Metrics::detail
