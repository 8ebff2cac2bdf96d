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

bool RowEngine::HoldsUnused(const Row& row, bool ownOnly) {
    return std::any_of(row.cells.begin(), row.cells.end(), [&](const Cell& cell) {
        return cell.bring && !cell.bring->used && (cell.own || !ownOnly);
    });
}

bool RowEngine::HoldsOtherUnused(const Row& row, const Bring* than) {
    return std::any_of(row.cells.begin(), row.cells.end(), [&](const Cell& cell) {
        return cell.own && cell.bring && cell.bring.get() != than && !cell.bring->used;
    });
}

const RowEngine::Entry* RowEngine::Nearest(const Entries& entries, std::uint32_t level) {
    const auto found = std::find_if(entries.rbegin(), entries.rend(),
                                    [&](const Entry& entry) { return entry.level <= level; });
    return found == entries.rend() ? nullptr : &*found;
}

bool RowEngine::Take(Row& row, std::size_t operand, const BringRef& bring) {
    if (!bring) return false;
    if (bring->fields[row_.operands[operand].field].state == Bring::FieldState::Unknown) return false;
    row.cells[operand] = {bring, false, false};
    return true;
}

bool RowEngine::Complete(int joint, const Gather& gather, Row& row) {
    if (JointAt(row.origin).allShareName && LacksNothing(row)) return true;
    for (std::size_t operand = 0; operand < row.cells.size(); ++operand)
        CompleteOperand(joint, gather, row, operand);
    return LacksNothing(row);
}

void RowEngine::CompleteOperand(int joint, const Gather& gather, Row& row, std::size_t operand) {
    const Joint& origin = JointAt(row.origin);
    if (Has(row, operand)) {
        // A nested context's id never labels the outer one's time.
        const Cell& cell = row.cells[operand];
        const bool fromInside = cell.own && cell.bring && cell.bring->level > row.level;
        if (fromInside && !origin.sharesName[operand] && HoldsOtherUnused(row, cell.bring.get()))
            LookAround(row, operand, true);
        return;
    }
    // What stands on the row's own path is that very element and no other.
    if (origin.ownPath[operand]) {
        LookInOwnPath(joint, row, operand);
        return;
    }
    if (!origin.sharesName[operand] && LookAround(row, operand, false)) return;
    if (LookInGather(joint, gather, row, operand, row.cameFrom)) return;
    LookFurtherUp(joint, row, operand);
}

bool RowEngine::LookInOwnPath(int joint, Row& row, std::size_t operand) {
    const int node = row_.operands[operand].node;
    const int above = JointAt(joint).depth - Node(node).depth;
    if (above < 0) return false;  // that element has closed
    const auto level = row.level - static_cast<std::uint32_t>(above);
    const Entry* const entry = Nearest(EntriesOf(open_, node), level);
    return entry != nullptr && entry->level == level && Take(row, operand, entry->bring);
}

// The nearest element around, the row's own included, that is still open and has it. An attribute is settled
// when there are such elements and none has it.
bool RowEngine::LookAround(Row& row, std::size_t operand, bool replaces) {
    const RowOperand& wanted = row_.operands[operand];
    if (wanted.what.kind == Operand::Kind::Text && wanted.node != kRoot) {
        const Entry* const found = Nearest(EntriesOf(found_, wanted.node), row.level);
        if (found == nullptr || (replaces && found->level == row.level)) return false;
        return Take(row, operand, found->bring);
    }
    const Entry* const entry = Nearest(EntriesOf(open_, wanted.node), row.level);
    // Around what stands at the top there is nothing to speak of.
    if (entry == nullptr && wanted.node == kRoot) row.cells[operand].empty = true;
    if (entry == nullptr) return wanted.node == kRoot;
    if (wanted.what.kind != Operand::Kind::Attribute) {
        const bool itself = wanted.what.kind == Operand::Kind::Fact || entry->level == row.level;
        return itself && Take(row, operand, entry->bring);
    }
    Bring* const nearest = entry->bring->fields[wanted.field].nearest;
    row.cells[operand] = {BringRef(nearest), false, nearest == nullptr};
    return true;
}

bool RowEngine::LookInGather(int joint, const Gather& gather, Row& row, std::size_t operand, int except) {
    const int branch = JointAt(joint).branchOf[operand];
    if (branch == kNone || branch == except) return false;
    return Take(row, operand, gather.last[operand]);
}

// Not past rows that wait: they are older and would be overtaken.
void RowEngine::LookFurtherUp(int joint, Row& row, std::size_t operand) {
    std::uint32_t level = row.level;
    for (int at = joint; JointAt(at).parent != kNone;) {
        const int upper = JointAt(at).parent;
        level -= static_cast<std::uint32_t>(JointAt(at).depth - JointAt(upper).depth);
        const Gather* const gather = FindGather(upper, level);
        if (gather != nullptr && !gather->waiting.empty()) return;
        const int below = JointAt(at).branchInParent;
        if (gather != nullptr && LookInGather(upper, *gather, row, operand, below)) return;
        at = upper;
    }
}

}  // namespace Metrics::detail
