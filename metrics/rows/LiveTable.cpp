#include "metrics/rows/LiveTable.h"

#include <ostream>

namespace Metrics::detail {
namespace {

constexpr std::size_t kBlock = 16384;  // there may be ten thousand tables

CompiledRow Compiled(const std::vector<std::string>& columns) {
    CompiledRow row;
    CompileRow(columns, row);
    return row;
}

}  // namespace

LiveTable::LiveTable(std::ostream& out, char separator, const std::vector<std::string>& columns)
    : out_(out),
      separator_(separator),
      row_(Compiled(columns)),
      reader_(row_, [this] { AppendCurrentRow(); }) {}

std::vector<StreamingXml::XmlColumnInfo> LiveTable::Columns() const {
    return ListColumns(row_, row_.IsSummary());
}

void LiveTable::Begin() {
    if (row_.IsSummary()) return;
    AppendHeader(lines_, Columns(), separator_);
    Flush();
}

void LiveTable::End() {
    if (ended_) return;
    ended_ = true;
    if (row_.IsSummary()) AppendHeader(lines_, Columns(), separator_);
    reader_.GiveGroups();
    Flush();
}

void LiveTable::BreakOff() {
    ended_ = true;
    Flush();
}

void LiveTable::AppendCurrentRow() {
    reader_.AppendCurrent(lines_, separator_, true);
    if (lines_.size() >= kBlock) WriteLines();
}

void LiveTable::WriteLines() {
    out_.write(lines_.data(), static_cast<std::streamsize>(lines_.size()));
    lines_.clear();
}

void LiveTable::Flush() {
    if (lines_.empty()) return;
    WriteLines();
    out_.flush();
}

}  // namespace Metrics::detail
