#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/XmlParser.h"
#include "metrics/rows/Gather.h"
#include "metrics/rows/Summary.h"

namespace Metrics::detail {

// A compiled definition at work: the rows of its engines, each of which reads an input of its own, go through
// the filters, then on to whoever takes them or, in a summary, into groups. Used from one thread. The values'
// base stands first: so each operand of a row is found without a call.
class RowReader final : private ValueSource, public RowReceiver {
  public:
    // `onRow` is called with each row to be written as the current one. The row must live as long.
    RowReader(const CompiledRow& row, std::function<void()> onRow, const RowLimits& limits = {});

    const CompiledRow& Row() const { return row_; }
    // What the limits have cost, in all engines together.
    RowNotices& Notices() { return notices_; }
    const RowNotices& Notices() const { return notices_; }
    const RowLimits& Limits() const { return limits_; }
    // Only the first row is given out.
    void StopAfterFirstRow() { limit_ = 1; }
    bool IsFull() const { return rowNumber_ >= limit_; }
    std::int64_t RowsWritten() const { return rowNumber_; }

    // Gives out the groups of a summary. No row may follow.
    void GiveGroups();

    // The current row, appended.
    void AppendCurrent(std::string& out, char separator, bool includeAggregates) const;

  private:
    void OnRow(const RowView& row, std::uint64_t lastElement) override;
    bool Passes() const;
    void NoteUncounted(std::uint64_t element);
    void AppendPlainLine(std::string& out, char separator) const;
    CellView OperandAt(std::uint32_t operand) const override { return current_->At(operand); }
    Value AggregateAt(std::uint32_t) const override { return {}; }
    std::int64_t RowNumber() const override { return rowNumber_; }

    const CompiledRow& row_;
    const RowLimits limits_;
    std::function<void()> onRow_;
    bool hasFilters_;
    bool hasPlainColumns_;  // each column is one field and no row is multiplied
    std::unique_ptr<Summary> summary_;
    RowNotices notices_;
    std::int64_t rowNumber_ = 0;
    std::int64_t limit_ = INT64_MAX;
    const RowView* current_ = nullptr;
    std::size_t currentGroup_ = 0;
    bool givingGroups_ = false;
    mutable RowFields fields_;
};

// Compiles the columns into `row`, which at an error has those before it.
void CompileRow(const std::vector<std::string>& columns, CompiledRow& row);

std::vector<StreamingXml::XmlColumnInfo> ListColumns(const CompiledRow& row, bool includeAggregates);

// The names of the columns as one line of CSV.
void AppendHeader(std::string& out, const std::vector<StreamingXml::XmlColumnInfo>& columns, char separator);

}  // namespace Metrics::detail
