#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/XmlParser.h"
#include "metrics/rows/RowEngine.h"
#include "metrics/rows/Summary.h"

namespace Metrics::detail {

// A compiled definition at work: the engine's rows go through the filters, then on to whoever takes them or,
// in a summary, into groups. Used from one thread. The values' base stands first: so each operand of a row is
// found without a call.
class RowReader final : private ValueSource, private RowReceiver {
  public:
    // `onRow` is called with each row to be written as the current one. The row must live as long.
    RowReader(const CompiledRow& row, std::function<void()> onRow, const RowLimits& limits = {});

    RowEngine& Engine() { return engine_; }
    // What the limits have cost.
    RowNotices& Notices() { return notices_; }
    const RowNotices& Notices() const { return notices_; }
    // Only the first row is given out.
    void StopAfterFirstRow() { limit_ = 1; }
    bool IsFull() const { return rowNumber_ >= limit_; }
    std::int64_t RowsWritten() const { return rowNumber_; }

    // Closes the open elements and gives out the groups of a summary. Nothing may follow.
    void Finish();
    // Only the latter, for an input that was broken off.
    void GiveGroups();

    // The current row, appended.
    void AppendCurrent(std::string& out, char separator, bool includeAggregates) const;

  private:
    void OnRow(const RowView& row) override;
    bool Passes() const;
    void NoteUncounted();
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
    RowEngine engine_;
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
