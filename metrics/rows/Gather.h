#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string_view>
#include <vector>

#include "metrics/rows/Bring.h"
#include "metrics/rows/CompiledRow.h"

namespace Metrics::detail {

// One operand's place in a row that is being put together.
struct Cell {
    BringRef bring;
    bool own = false;    // gathered or taken by the row; else looked up
    bool empty = false;  // settled: an attribute that is nowhere to be had
};

struct Row {
    std::vector<Cell> cells;  // by operand
    int origin = kNone;       // the joint where it was first made
    std::uint32_t level = 0;  // of the element where it is now
    // What it holds has a counterpart around, so that it must not be joined with what is gathered here.
    bool isOutranked = false;

    // Makes it an empty one.
    void Reset(int joint, std::uint32_t newLevel, std::size_t operands);
};

// What the element that a joint is bound to has found so far, by branch.
struct Gather {
    using Waiting = std::map<std::uint64_t, Row>;  // by age

    std::uint32_t level = 0;
    std::vector<BringRef> last;     // by operand: the last that was brought
    std::vector<BringRef> pending;  // by branch: the last one while no row has been made of it
    std::vector<int> pendingNode;   // by branch: the pattern node that the pending one speaks for
    Waiting waiting;
    std::vector<std::set<std::uint64_t>> lackBranch;  // by branch: the waiting rows with nothing of it
    std::uint64_t nextAge = 0;

    // Makes a cleared one ready for an element.
    void Reset(std::uint32_t newLevel, std::size_t operands, std::size_t branches);
    void Clear();
};

// The state of one operand in a row, as a column sees it.
struct CellView {
    enum class State : std::uint8_t { Missing, Empty, Value };

    State state = State::Missing;
    std::string_view text;
    bool fresh = false;  // no earlier row has used it
};

// A finished row as its receiver sees it; borrowed for one call.
class RowView {
  public:
    RowView(const CompiledRow& compiled, const Row& row) : compiled_(compiled), row_(row) {}

    CellView At(std::uint32_t operand) const;

  private:
    const CompiledRow& compiled_;
    const Row& row_;
};

inline CellView RowView::At(std::uint32_t operand) const {
    const Cell& cell = row_.cells[operand];
    if (cell.empty) return {CellView::State::Empty, {}, false};
    if (!cell.bring) {
        // An attribute that is nowhere to be had is empty, not missing.
        const bool isAttribute = compiled_.operands[operand].what.kind == Operand::Kind::Attribute;
        return {isAttribute ? CellView::State::Empty : CellView::State::Missing, {}, false};
    }
    const Bring::Field& field = cell.bring->fields[compiled_.operands[operand].field];
    switch (field.state) {
        case Bring::FieldState::Unknown: return {};
        case Bring::FieldState::Absent: return {CellView::State::Empty, {}, false};
        case Bring::FieldState::Lost: return {};
        case Bring::FieldState::Known: return {CellView::State::Value, field.text, !cell.bring->used};
    }
    return {};
}

// Who gets the rows that lack nothing, in order. Its filters are its own affair: written or not, what the row
// holds counts as used.
class RowReceiver {
  public:
    // `lastElement` is the number of the last element that opened.
    virtual void OnRow(const RowView& row, std::uint64_t lastElement) = 0;

  protected:
    ~RowReceiver() = default;
};

}  // namespace Metrics::detail
