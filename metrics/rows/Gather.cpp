#include "metrics/rows/Gather.h"

#include <algorithm>

namespace Metrics::detail {

void Gather::Reset(std::uint32_t newLevel, std::size_t operands, std::size_t branches) {
    level = newLevel;
    nextAge = 0;
    last.resize(operands);
    pending.resize(branches);
    pendingNode.resize(branches);
    lackBranch.resize(branches);
}

void Gather::Clear() {
    std::fill(last.begin(), last.end(), BringRef());
    std::fill(pending.begin(), pending.end(), BringRef());
    waiting.clear();
    for (auto& rows : lackBranch) rows.clear();
}

CellView RowView::At(std::uint32_t operand) const {
    const Cell& cell = row_.cells[operand];
    if (cell.empty) return {CellView::State::Empty, {}, false};
    if (!cell.bring) return {};
    const Bring::Field& field = cell.bring->fields[compiled_.operands[operand].field];
    switch (field.state) {
        case Bring::FieldState::Unknown: return {};
        case Bring::FieldState::Absent: return {CellView::State::Empty, {}, false};
        case Bring::FieldState::Known: return {CellView::State::Value, field.text, !cell.bring->used};
    }
    return {};
}

}  // namespace Metrics::detail
