#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "metrics/rows/Aggregate.h"
#include "metrics/rows/RowFields.h"

namespace Metrics::detail {

// The groups of a definition with aggregates. A row joins the group of its written values, those of
// aggregates and of row numbers aside; each suffix of a pivot path is a group of its own. Memory goes with
// the groups.
class Summary {
  public:
    explicit Summary(const CompiledRow& row);

    // A complete row that passed its filters; `source` gives its operands, with what is fresh in them.
    void Add(const ValueSource& source);

    std::size_t Size() const { return groups_.size(); }
    // Whether the filters that need aggregates let the group through.
    bool Passes(std::size_t group, std::int64_t rowNumber) const;
    // The group's line, in order of first appearance.
    void BuildFields(std::size_t group, std::int64_t rowNumber, bool includeAggregates,
                     RowFields& fields) const;

    // Whether a column is evaluated at the end only.
    bool IsDeferred(std::size_t column) const { return deferred_[column]; }

  private:
    struct KeptOperand {
        CellView::State state = CellView::State::Missing;
        std::string text;
    };
    struct Group {
        std::vector<std::string> fields;  // those of deferred columns are empty
        std::vector<KeptOperand> kept;    // of the first row: what deferred columns ask for
        std::vector<Accumulator> accumulators;
    };
    struct Arguments {
        bool counts = false;
        Value x;
        Value y;
    };
    class GroupSource;

    void AddToGroup(const ValueSource& source);
    Group& GroupFor(const ValueSource& source);
    void EvaluateArguments(const ValueSource& source);

    const CompiledRow& row_;
    std::vector<bool> deferred_;  // by column
    std::vector<int> keptIndex_;  // by operand: its place in Group::kept
    std::vector<std::uint32_t> keptOperands_;
    std::unordered_map<std::string, std::size_t> byKey_;
    std::deque<Group> groups_;

    RowFields fields_;  // of the row at hand
    std::vector<Arguments> arguments_;
    std::string key_;
};

}  // namespace Metrics::detail
