#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/rows/Aggregate.h"
#include "metrics/rows/GroupKeys.h"
#include "metrics/rows/RowFields.h"
#include "metrics/rows/RowNotice.h"

namespace Metrics::detail {

// The groups of a definition with aggregates. A row joins the group of its written values, those of
// aggregates and of row numbers aside; each suffix of a pivot path is a group of its own. Memory goes with
// the groups, and there are no more of them than the limits allow.
class Summary {
  public:
    Summary(const CompiledRow& row, const RowLimits& limits);

    // A complete row that passed its filters; `source` gives its operands, with what is fresh in them. False
    // when a group of it would be beyond the limits: the row is not counted there. Such a group will never
    // be.
    bool Add(const ValueSource& source);

    std::size_t Size() const { return groups_.size(); }
    // Whether the filters that need aggregates let the group through.
    bool Passes(std::size_t group, std::int64_t rowNumber) const;
    // The group's line, in order of first appearance.
    void BuildFields(std::size_t group, std::int64_t rowNumber, bool includeAggregates,
                     RowFields& fields) const;

    // Whether a column is evaluated at the end only.
    bool IsDeferred(std::size_t column) const { return deferred_[column]; }

  private:
    struct Arguments {
        bool counts = false;
        Value x;
        Value y;
    };
    class GroupSource;

    void EvaluateFields(const ValueSource& source);
    void EvaluateArguments(const ValueSource& source);
    void NoteKept(const ValueSource& source);
    std::uint32_t FindOrAdd(std::uint32_t parent, std::string_view key, std::size_t written);
    bool FindPivotGroups();
    void AddToGroup(std::uint32_t node);
    std::string PivotOf(std::uint32_t& node) const;

    const CompiledRow& row_;
    const RowLimits limits_;
    std::vector<bool> deferred_;               // by column
    std::vector<int> keptIndex_;               // by operand: its place among the kept ones
    std::vector<std::uint32_t> keptOperands_;  // what deferred columns ask for: that of the first row stands
    std::size_t pivot_ = RowFields::kNoPivot;  // among the fields

    // The fields of a group are one key. A pivot path is not among them: below them stand its names, the last
    // one first.
    GroupKeys keys_;
    std::size_t bytes_ = 0;
    std::vector<std::uint32_t> groups_;     // by group: its key
    std::vector<std::uint32_t> groupOf_;    // by key
    std::deque<Accumulator> accumulators_;  // by group and aggregate

    RowFields fields_;  // of the row at hand
    std::vector<Arguments> arguments_;
    std::string key_;
    std::string note_;                  // its kept operands
    std::vector<std::uint32_t> found_;  // its groups' keys, the shortest pivot path first
};

}  // namespace Metrics::detail
