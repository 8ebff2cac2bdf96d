#include "metrics/rows/Summary.h"

#include <algorithm>

#include "metrics/rows/Numbers.h"

namespace Metrics::detail {
namespace {

bool AsksForRowNumber(const Program& program) {
    return std::any_of(program.begin(), program.end(),
                       [](const Step& step) { return step.kind == Step::Kind::RowNumber; });
}

std::size_t FieldsOf(const CompiledColumn& column) {
    return column.kind == CompiledColumn::Kind::Scopes ? column.scopes : 1;
}

}  // namespace

// A finished group as the columns see it.
class Summary::GroupSource final : public ValueSource {
  public:
    GroupSource(const Summary& summary, const Group& group, std::int64_t rowNumber)
        : summary_(summary), group_(group), rowNumber_(rowNumber) {}

    CellView OperandAt(std::uint32_t operand) const override {
        const KeptOperand& kept = group_.kept[static_cast<std::size_t>(summary_.keptIndex_[operand])];
        return {kept.state, kept.text, false};
    }
    Value AggregateAt(std::uint32_t slot) const override {
        return group_.accumulators[slot].Result(summary_.row_.aggregates[slot].call.function);
    }
    std::int64_t RowNumber() const override { return rowNumber_; }

  private:
    const Summary& summary_;
    const Group& group_;
    std::int64_t rowNumber_;
};

Summary::Summary(const CompiledRow& row) : row_(row), keptIndex_(row.operands.size(), kNone) {
    for (const CompiledColumn& column : row.columns) {
        const bool deferred = column.hasAggregate || AsksForRowNumber(column.program);
        deferred_.push_back(deferred);
        for (const Step& step : column.program) {
            if (!deferred || step.kind != Step::Kind::Operand || keptIndex_[step.index] != kNone) continue;
            keptIndex_[step.index] = static_cast<int>(keptOperands_.size());
            keptOperands_.push_back(step.index);
        }
    }
}

void Summary::Add(const ValueSource& source) {
    fields_.Clear();
    for (std::size_t i = 0; i < row_.columns.size(); ++i) {
        const CompiledColumn& column = row_.columns[i];
        if (column.IsFilter()) continue;
        if (!deferred_[i]) {
            AddColumn(fields_, row_, column, source);
        } else {
            for (std::size_t field = 0; field < FieldsOf(column); ++field) fields_.Add();
        }
    }
    EvaluateArguments(source);
    if (fields_.pivot == RowFields::kNoPivot) return AddToGroup(source);
    const std::string path = fields_[fields_.pivot];
    for (const std::string_view suffix : PivotSuffixes(path)) {
        fields_[fields_.pivot] = suffix;
        AddToGroup(source);
    }
}

// A value that is carried into many rows counts in the first only; an argument without paths counts always.
void Summary::EvaluateArguments(const ValueSource& source) {
    arguments_.clear();
    for (const AggregateSlot& slot : row_.aggregates) {
        Arguments arguments;
        const auto fresh = [&](std::uint32_t operand) { return source.OperandAt(operand).fresh; };
        arguments.counts =
            slot.operands.empty() || std::any_of(slot.operands.begin(), slot.operands.end(), fresh);
        if (arguments.counts) {
            arguments.x = Evaluate(row_, slot.call.x, source);
            if (!slot.call.y.empty()) arguments.y = Evaluate(row_, slot.call.y, source);
        }
        arguments_.push_back(arguments);
    }
}

void Summary::AddToGroup(const ValueSource& source) {
    Group& group = GroupFor(source);
    for (std::size_t i = 0; i < arguments_.size(); ++i) {
        const Arguments& arguments = arguments_[i];
        if (arguments.counts) group.accumulators[i].Add(row_.aggregates[i].call, arguments.x, arguments.y);
    }
}

// The lengths in the key keep "a","bc" apart from "ab","c".
Summary::Group& Summary::GroupFor(const ValueSource& source) {
    key_.clear();
    for (std::size_t i = 0; i < fields_.Size(); ++i) {
        AppendInteger(key_, static_cast<std::int64_t>(fields_[i].size()));
        key_ += ':';
        key_ += fields_[i];
    }
    const auto [place, isNew] = byKey_.try_emplace(key_, groups_.size());
    if (!isNew) return groups_[place->second];
    Group& group = groups_.emplace_back();
    for (std::size_t i = 0; i < fields_.Size(); ++i) group.fields.push_back(fields_[i]);
    for (const std::uint32_t operand : keptOperands_) {
        const CellView cell = source.OperandAt(operand);
        group.kept.push_back({cell.state, std::string(cell.text)});
    }
    group.accumulators.resize(row_.aggregates.size());
    return group;
}

bool Summary::Passes(std::size_t group, std::int64_t rowNumber) const {
    const GroupSource source(*this, groups_[group], rowNumber);
    for (std::size_t i = 0; i < row_.columns.size(); ++i) {
        const CompiledColumn& column = row_.columns[i];
        if (!column.IsFilter() || !deferred_[i]) continue;
        if (!IsTrue(Evaluate(row_, column.program, source))) return false;
    }
    return true;
}

void Summary::BuildFields(std::size_t index, std::int64_t rowNumber, bool includeAggregates,
                          RowFields& fields) const {
    const Group& group = groups_[index];
    const GroupSource source(*this, group, rowNumber);
    fields.Clear();
    std::size_t field = 0;
    for (std::size_t i = 0; i < row_.columns.size(); ++i) {
        const CompiledColumn& column = row_.columns[i];
        if (column.IsFilter()) continue;
        const std::size_t count = FieldsOf(column);
        if (deferred_[i]) {
            if (includeAggregates || !column.hasAggregate) AddColumn(fields, row_, column, source);
        } else {
            for (std::size_t j = 0; j < count; ++j) fields.Add() = group.fields[field + j];
        }
        field += count;
    }
    fields.pivot = RowFields::kNoPivot;
}

}  // namespace Metrics::detail
