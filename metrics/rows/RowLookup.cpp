// Where a row finds what it lacks.
#include <algorithm>

#include "metrics/rows/RowEngine.h"

namespace Metrics::detail {

bool RowEngine::Has(const Row& row, std::size_t operand) const {
    const Cell& cell = row.cells[operand];
    if (cell.empty) return true;
    return cell.bring && cell.bring->fields[row_.operands[operand].field].state != Bring::FieldState::Unknown;
}

bool RowEngine::LacksNothing(const Row& row) const {
    for (std::size_t operand = 0; operand < row.cells.size(); ++operand)
        if (!Has(row, operand)) return false;
    return true;
}

bool RowEngine::LacksRequired(const Row& row) const {
    for (std::size_t operand = 0; operand < row.cells.size(); ++operand)
        if (row_.operands[operand].required && !Has(row, operand)) return true;
    return false;
}

bool RowEngine::HoldsUnused(const Row& row) {
    return std::any_of(row.cells.begin(), row.cells.end(),
                       [](const Cell& cell) { return cell.own && cell.bring && !cell.bring->used; });
}

bool RowEngine::HoldsUnusedBeside(const Row& row, const Joint& joint, int branch) const {
    for (std::size_t operand = 0; operand < row.cells.size(); ++operand) {
        const Cell& cell = row.cells[operand];
        if (cell.own && cell.bring && !cell.bring->used && joint.branchOf[operand] != branch) return true;
    }
    return false;
}

bool RowEngine::IsSetAny(const Row& row, const std::vector<std::uint32_t>& operands) const {
    return std::any_of(operands.begin(), operands.end(),
                       [&](std::uint32_t operand) { return IsSet(row, operand); });
}

const RowEngine::Entry* RowEngine::Nearest(const Entries& entries, std::uint32_t level) {
    const auto found = std::find_if(entries.rbegin(), entries.rend(),
                                    [&](const Entry& entry) { return entry.level <= level; });
    return found == entries.rend() ? nullptr : &*found;
}

// The number of an element's end may still be unknown; rows wait for it.
bool RowEngine::CanTake(std::size_t operand, const BringRef& bring) const {
    const RowOperand& wanted = row_.operands[operand];
    return bring && (wanted.what.fact == Function::NodeEnd ||
                     bring->fields[wanted.field].state != Bring::FieldState::Unknown);
}

bool RowEngine::Complete(int joint, const Gather& gather, Row& row) {
    const Joint& origin = JointAt(row.origin);
    const Joint& at = JointAt(joint);
    if (origin.allShareName && LacksNothing(row)) return true;
    if (!at.labels.empty()) PreferAround(at, row);
    for (std::size_t operand = 0; operand < row.cells.size(); ++operand) {
        if (IsSet(row, operand)) continue;
        if (origin.ownPath[operand]) {
            LookInOwnPath(joint, row, operand);
        } else if (!origin.sharesName[operand]) {
            FindAround(operand, row.level, row.cells[operand]);
        }
    }
    if (LacksNothing(row)) return true;
    row.isOutranked = IsOutranked(at, row, row.level);
    if (!row.isOutranked) LookInGathers(joint, gather, row);
    return LacksNothing(row);
}

// A nested context's id never labels the outer one's time: where the row gathered a label from inside and
// there is one around, all of it is had from there.
void RowEngine::PreferAround(const Joint& joint, Row& row) {
    for (const int branch : joint.labels) {
        if (!IsOwnAny(joint, branch, row) || !HoldsUnusedBeside(row, joint, branch)) continue;
        if (!AnyAround(joint, branch, row.level)) continue;
        for (const std::uint32_t operand : joint.operandsOf[static_cast<std::size_t>(branch)]) {
            row.cells[operand] = {};
            FindAround(operand, row.level, row.cells[operand]);
        }
    }
}

// Whether it is itself such a label where the joint's element gathers.
bool RowEngine::IsOutranked(const Joint& joint, const Row& row, std::uint32_t level) const {
    return std::any_of(joint.labels.begin(), joint.labels.end(), [&](int branch) {
        return IsOwnAny(joint, branch, row) && AnyAround(joint, branch, level);
    });
}

bool RowEngine::IsOwnAny(const Joint& joint, int branch, const Row& row) {
    const auto& operands = joint.operandsOf[static_cast<std::size_t>(branch)];
    return std::any_of(operands.begin(), operands.end(),
                       [&](std::uint32_t operand) { return row.cells[operand].own; });
}

bool RowEngine::AnyAround(const Joint& joint, int branch, std::uint32_t level) const {
    const auto& operands = joint.operandsOf[static_cast<std::size_t>(branch)];
    return std::any_of(operands.begin(), operands.end(), [&](std::uint32_t operand) {
        Cell cell;
        return FindAround(operand, level, cell);
    });
}

// What stands on the row's own path is that very element and no other.
void RowEngine::LookInOwnPath(int joint, Row& row, std::size_t operand) {
    const int node = row_.operands[operand].node;
    const int above = JointAt(joint).depth - Node(node).depth;
    if (above < 0) return;  // that element has closed
    const auto level = row.level - static_cast<std::uint32_t>(above);
    const Entry* const entry = Nearest(open_[static_cast<std::size_t>(node)], level);
    if (entry != nullptr && entry->level == level && CanTake(operand, entry->bring))
        row.cells[operand] = {entry->bring, false, false};
}

// The nearest element around, the row's own included, that is still open and has it. An attribute is settled
// when there are such elements and none has it.
bool RowEngine::FindAround(std::size_t operand, std::uint32_t level, Cell& cell) const {
    const RowOperand& wanted = row_.operands[operand];
    if (wanted.what.kind == Operand::Kind::Text && wanted.node != kRoot)
        return FindTextAround(operand, level, cell);
    const Entry* const entry = Nearest(open_[static_cast<std::size_t>(wanted.node)], level);
    // Around what stands at the top there is nothing to speak of.
    if (entry == nullptr && wanted.node == kRoot) cell.empty = true;
    if (entry == nullptr) return wanted.node == kRoot;
    if (wanted.what.kind != Operand::Kind::Attribute) {
        const bool itself = wanted.what.kind == Operand::Kind::Fact || entry->level == level;
        if (!itself || !CanTake(operand, entry->bring)) return false;
        cell = {entry->bring, false, false};
        return true;
    }
    Bring* const nearest = entry->bring->fields[wanted.field].nearest;
    cell = {BringRef(nearest), false, nearest == nullptr};
    return true;
}

bool RowEngine::FindTextAround(std::size_t operand, std::uint32_t level, Cell& cell) const {
    const auto& entries = found_[static_cast<std::size_t>(row_.operands[operand].node)];
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (entry->level > level) continue;
        const BringRef& bring = entry->bring->isArriving ? entry->before : entry->bring;
        if (!CanTake(operand, bring)) continue;
        cell = {bring, false, false};
        return true;
    }
    return false;
}

// Here, then further up, but not past rows that wait: they are older and would be overtaken.
void RowEngine::LookInGathers(int joint, const Gather& gather, Row& row) {
    TakeBranches(JointAt(joint), gather, row);
    std::uint32_t level = row.level;
    for (int at = joint; JointAt(at).parent != kNone;) {
        const int upper = JointAt(at).parent;
        level -= static_cast<std::uint32_t>(JointAt(at).depth - JointAt(upper).depth);
        Gather* const further = FindGather(upper, level);
        if (further != nullptr) {
            if (HoldsWaiting(*further) || IsOutranked(JointAt(upper), row, level)) return;
            TakeBranches(JointAt(upper), *further, row);
        }
        at = upper;
    }
}

// The last that came of each branch that the row has nothing of: values of one element stay together, and
// what the row comes from is passed by.
void RowEngine::TakeBranches(const Joint& joint, const Gather& gather, Row& row) {
    for (const auto& operands : joint.operandsOf) {
        if (IsSetAny(row, operands)) continue;
        for (const std::uint32_t operand : operands)
            if (CanTake(operand, gather.last[operand]))
                row.cells[operand] = {gather.last[operand], false, false};
    }
}

}  // namespace Metrics::detail
