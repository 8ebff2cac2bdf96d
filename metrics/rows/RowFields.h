#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/rows/Value.h"

namespace Metrics::detail {

// The written values of one row as text, in column order. Keeps its strings from row to row.
class RowFields {
  public:
    static constexpr std::size_t kNoPivot = static_cast<std::size_t>(-1);

    void Clear() {
        size_ = 0;
        pivot = kNoPivot;
    }
    std::string& Add() {
        if (size_ == texts_.size()) texts_.emplace_back();
        texts_[size_].clear();
        return texts_[size_++];
    }
    std::size_t Size() const { return size_; }
    const std::string& operator[](std::size_t index) const { return texts_[index]; }
    std::string& operator[](std::size_t index) { return texts_[index]; }

    std::size_t pivot = kNoPivot;  // which of them multiplies the row

  private:
    std::vector<std::string> texts_;
    std::size_t size_ = 0;
};

// Adds what one column writes: one field, or several for scopes().
void AddColumn(RowFields& fields, const CompiledRow& row, const CompiledColumn& column,
               const ValueSource& source);

// Every suffix of a pivot path, the whole first; they borrow it.
std::vector<std::string_view> PivotSuffixes(std::string_view path);

// Makes a field of CSV of what `out` holds from there on: in quotes when it holds the separator, a quote or a
// line feed.
void QuoteFrom(std::string& out, std::size_t start, char separator);
void AppendField(std::string& out, std::string_view text, char separator);

// The row as lines: one, or one for each suffix of its pivot path.
void AppendLines(std::string& out, const RowFields& fields, char separator);

}  // namespace Metrics::detail
