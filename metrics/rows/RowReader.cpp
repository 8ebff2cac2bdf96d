#include "metrics/rows/RowReader.h"

#include <algorithm>
#include <utility>

#include "metrics/rows/RowCompiler.h"

namespace Metrics::detail {

RowReader::RowReader(const CompiledRow& row, std::function<void()> onRow, const RowLimits& limits)
    : row_(row),
      limits_(limits),
      onRow_(std::move(onRow)),
      hasFilters_(std::any_of(row.columns.begin(), row.columns.end(),
                              [](const CompiledColumn& column) { return column.IsFilter(); })),
      hasPlainColumns_(std::all_of(
          row.columns.begin(), row.columns.end(),
          [](const CompiledColumn& column) { return column.kind == CompiledColumn::Kind::Value; })),
      summary_(row.IsSummary() ? std::make_unique<Summary>(row, limits) : nullptr) {}

void RowReader::OnRow(const RowView& row, std::uint64_t lastElement) {
    if (IsFull()) return;
    current_ = &row;
    ++rowNumber_;
    if (hasFilters_ && !Passes()) {
        --rowNumber_;
    } else if (summary_ != nullptr) {
        if (!summary_->Add(*this)) NoteUncounted(lastElement);
        --rowNumber_;
    } else {
        onRow_();
    }
    current_ = nullptr;
}

void RowReader::NoteUncounted(std::uint64_t element) {
    notices_.Add(RowLimit::Groups, element, [&] {
        return "more than " + std::to_string(limits_.groups) + " groups, or " +
               std::to_string(limits_.groupBytes) + " bytes of them, by element " + std::to_string(element) +
               ": rows of further groups are not counted";
    });
}

bool RowReader::Passes() const {
    for (std::size_t i = 0; i < row_.columns.size(); ++i) {
        const CompiledColumn& column = row_.columns[i];
        if (!column.IsFilter() || (summary_ != nullptr && summary_->IsDeferred(i))) continue;
        if (!IsTrue(Evaluate(row_, column.program, *this))) return false;
    }
    return true;
}

void RowReader::GiveGroups() {
    if (summary_ == nullptr) return;
    givingGroups_ = true;
    for (currentGroup_ = 0; currentGroup_ < summary_->Size() && !IsFull(); ++currentGroup_) {
        if (!summary_->Passes(currentGroup_, rowNumber_ + 1)) continue;
        ++rowNumber_;
        onRow_();
    }
    givingGroups_ = false;
}

void RowReader::AppendCurrent(std::string& out, char separator, bool includeAggregates) const {
    if (givingGroups_) {
        summary_->BuildFields(currentGroup_, rowNumber_, includeAggregates, fields_);
    } else if (current_ == nullptr) {
        return;
    } else if (hasPlainColumns_) {
        return AppendPlainLine(out, separator);
    } else {
        fields_.Clear();
        for (const CompiledColumn& column : row_.columns)
            if (!column.IsFilter()) AddColumn(fields_, row_, column, *this);
    }
    AppendLines(out, fields_, separator);
}

// The same as by way of fields, without their copies.
void RowReader::AppendPlainLine(std::string& out, char separator) const {
    // Numbers hold neither of these separators nor what else asks for quotes.
    const bool isCommon = separator == ',' || separator == '|';
    const auto isNumeric = [isCommon](ColumnType type) {
        return isCommon && (type == ColumnType::Integer || type == ColumnType::Real);
    };
    bool isFirst = true;
    for (const CompiledColumn& column : row_.columns) {
        if (column.IsFilter()) continue;
        if (!std::exchange(isFirst, false)) out += separator;
        const std::size_t start = out.size();
        AppendValue(out, Evaluate(row_, column.program, *this), column.type, column.precision);
        if (!isNumeric(column.type)) QuoteFrom(out, start, separator);
    }
    out += '\n';
}

void CompileRow(const std::vector<std::string>& columns, CompiledRow& row) {
    RowCompiler compiler;
    try {
        for (const std::string& column : columns) compiler.Add(column);
    } catch (...) {
        row = compiler.Finish();
        throw;
    }
    row = compiler.Finish();
}

std::vector<StreamingXml::XmlColumnInfo> ListColumns(const CompiledRow& row, bool includeAggregates) {
    std::vector<StreamingXml::XmlColumnInfo> columns;
    for (const CompiledColumn& column : row.columns) {
        if (column.IsFilter() || (column.hasAggregate && !includeAggregates)) continue;
        if (column.kind != CompiledColumn::Kind::Scopes || column.scopes == 1) {
            columns.push_back({column.name, column.type});
            continue;
        }
        for (std::uint32_t i = 1; i <= column.scopes; ++i)
            columns.push_back({column.name + std::to_string(i), column.type});
    }
    return columns;
}

void AppendHeader(std::string& out, const std::vector<StreamingXml::XmlColumnInfo>& columns, char separator) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (i > 0) out += separator;
        AppendField(out, columns[i].name, separator);
    }
    out += '\n';
}

}  // namespace Metrics::detail
