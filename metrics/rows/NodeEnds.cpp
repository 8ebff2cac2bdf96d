// nodeend(path, n) is known only when the element n levels above closes. A row that lacks nothing else is
// parked there.
#include "metrics/rows/Numbers.h"
#include "metrics/rows/RowEngine.h"

namespace Metrics::detail {

// What came first goes first once there is too much of it; a row then stays without its number.
template <class T>
void RowEngine::AddBounded(std::vector<std::deque<T>>& byLevel, std::size_t level, T entry) {
    if (byLevel.size() <= level) byLevel.resize(level + 1);
    byLevel[level].push_back(std::move(entry));
    if (byLevel[level].size() <= limits_.waitingRows) return;
    byLevel[level].pop_front();
    NoteWaiting(level, kRoot);
}

void RowEngine::FillNodeEnd(const RowOperand& operand, const BringRef& bring) {
    const std::uint32_t above = operand.what.number;
    Bring::Field& field = bring->fields[operand.field];
    if (above > 0 && above < Level()) {
        frames_[Level() - above].endAwaited = true;
        AddBounded<EndAwaiter>(endAwaiters_, Level() - above, {bring, operand.field});
        return;
    }
    field.state = Bring::FieldState::Known;
    AppendInteger(field.text, above > 0 ? 0 : static_cast<std::int64_t>(lastNumber_));
}

void RowEngine::FillAwaitedEnds() {
    if (endAwaiters_.size() <= Level()) return;
    for (const EndAwaiter& awaiter : endAwaiters_[Level()]) {
        Bring::Field& field = awaiter.bring->fields[awaiter.field];
        field.state = Bring::FieldState::Known;
        AppendInteger(field.text, static_cast<std::int64_t>(lastNumber_));
    }
    endAwaiters_[Level()].clear();
}

// Where the first of the missing ends comes; a row that lacks anything else required is dropped.
void RowEngine::Park(Row& row) {
    std::uint32_t level = 0;
    for (std::size_t i = 0; i < row.cells.size(); ++i) {
        const RowOperand& operand = row_.operands[i];
        if (!operand.required || Has(row, i)) continue;
        const BringRef& bring = row.cells[i].bring;
        if (!bring || operand.what.fact != Function::NodeEnd) return;
        const std::uint32_t above = operand.what.number < bring->level ? operand.what.number : 0;
        level = std::max(level, bring->level - above);
    }
    if (level == 0 || level > Level()) return;
    frames_[level].endAwaited = true;
    AddBounded(parked_, level, std::move(row));
}

void RowEngine::ConcludeParked() {
    if (parked_.size() <= Level()) return;
    std::deque<Row> rows = std::move(parked_[Level()]);
    parked_[Level()].clear();
    for (Row& row : rows) Conclude(row);
}

}  // namespace Metrics::detail
