#include "metrics/rows/Summary.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Metrics::detail {
namespace {

bool AsksForRowNumber(const Program& program) {
    return std::any_of(program.begin(), program.end(),
                       [](const Step& step) { return step.kind == Step::Kind::RowNumber; });
}

std::size_t FieldsOf(const CompiledColumn& column) {
    return column.kind == CompiledColumn::Kind::Scopes ? column.scopes : 1;
}

// Texts behind one another, each with its length before it.
void AppendPart(std::string& out, std::string_view text) {
    const std::size_t size = text.size();
    out.append(reinterpret_cast<const char*>(&size), sizeof size);
    out += text;
}

std::string_view TakePart(std::string_view& parts) {
    std::size_t size = 0;
    std::memcpy(&size, parts.data(), sizeof size);
    const std::string_view text = parts.substr(sizeof size, size);
    parts.remove_prefix(sizeof size + size);
    return text;
}

}  // namespace

// A finished group as the columns see it.
class Summary::GroupSource final : public ValueSource {
  public:
    GroupSource(const Summary& summary, std::size_t group, std::int64_t rowNumber)
        : summary_(summary), group_(group), rowNumber_(rowNumber) {
        std::string_view note = summary.keys_.NoteOf(summary.groups_[group]);
        while (!note.empty()) {
            const auto state = static_cast<CellView::State>(note.front());
            note.remove_prefix(1);
            kept_.push_back({state, TakePart(note), false});
        }
    }

    CellView OperandAt(std::uint32_t operand) const override {
        return kept_[static_cast<std::size_t>(summary_.keptIndex_[operand])];
    }
    Value AggregateAt(std::uint32_t slot) const override {
        const auto& aggregates = summary_.row_.aggregates;
        return summary_.accumulators_[group_ * aggregates.size() + slot].Result(
            aggregates[slot].call.function);
    }
    std::int64_t RowNumber() const override { return rowNumber_; }

  private:
    const Summary& summary_;
    std::size_t group_;
    std::int64_t rowNumber_;
    std::vector<CellView> kept_;
};

Summary::Summary(const CompiledRow& row, const RowLimits& limits)
    : row_(row), limits_(limits), keptIndex_(row.operands.size(), kNone) {
    std::size_t fields = 0;
    for (const CompiledColumn& column : row.columns) {
        const bool deferred = column.hasAggregate || AsksForRowNumber(column.program);
        deferred_.push_back(deferred);
        for (const Step& step : column.program) {
            if (!deferred || step.kind != Step::Kind::Operand || keptIndex_[step.index] != kNone) continue;
            keptIndex_[step.index] = static_cast<int>(keptOperands_.size());
            keptOperands_.push_back(step.index);
        }
        if (column.IsFilter()) continue;
        const bool multiplies = column.kind == CompiledColumn::Kind::Pivot;
        if (multiplies && pivot_ == RowFields::kNoPivot) pivot_ = fields;
        fields += FieldsOf(column);
    }
}

bool Summary::Add(const ValueSource& source) {
    EvaluateFields(source);
    EvaluateArguments(source);
    NoteKept(source);
    found_.clear();
    bool fits = true;
    if (pivot_ != RowFields::kNoPivot) {
        fits = FindPivotGroups();
    } else {
        const std::uint32_t node = FindOrAdd(GroupKeys::kNone, key_, key_.size());
        fits = node != GroupKeys::kNone;
        if (fits) found_.push_back(node);
    }
    for (auto node = found_.rbegin(); node != found_.rend(); ++node) AddToGroup(*node);
    return fits;
}

void Summary::EvaluateFields(const ValueSource& source) {
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
    key_.clear();
    for (std::size_t i = 0; i < fields_.Size(); ++i)
        AppendPart(key_, i == pivot_ ? std::string_view() : fields_[i]);
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

void Summary::NoteKept(const ValueSource& source) {
    note_.clear();
    for (const std::uint32_t operand : keptOperands_) {
        const CellView cell = source.OperandAt(operand);
        note_ += static_cast<char>(cell.state);
        AppendPart(note_, cell.text);
    }
}

// `written` is what the key's line takes, so that the lines are bounded too.
std::uint32_t Summary::FindOrAdd(std::uint32_t parent, std::string_view key, std::size_t written) {
    const std::uint32_t known = keys_.Find(parent, key);
    if (known != GroupKeys::kNone) return known;
    const std::size_t bytes =
        written + note_.size() + GroupKeys::kOverhead + row_.aggregates.size() * sizeof(Accumulator);
    if (keys_.Size() >= limits_.groups || bytes > limits_.groupBytes - bytes_) return GroupKeys::kNone;
    bytes_ += bytes;
    return keys_.Add(parent, key, note_);
}

// From the last name on, which is that of the shortest path: what is not there can have nothing below it.
bool Summary::FindPivotGroups() {
    const std::string& path = fields_[pivot_];
    std::uint32_t node = FindOrAdd(GroupKeys::kNone, key_, key_.size());
    if (node == GroupKeys::kNone) return false;
    const auto suffixes = PivotSuffixes(path);
    std::size_t end = path.size();
    for (auto suffix = suffixes.rbegin(); suffix != suffixes.rend(); ++suffix) {
        const std::size_t start = path.size() - suffix->size();
        const std::string_view name = suffix->substr(0, end - start);
        node = FindOrAdd(node, name, key_.size() + suffix->size());
        if (node == GroupKeys::kNone) return false;
        found_.push_back(node);
        end = start - 1;
    }
    return true;
}

void Summary::AddToGroup(std::uint32_t node) {
    if (node >= groupOf_.size()) groupOf_.resize(node + 1, GroupKeys::kNone);
    std::uint32_t& group = groupOf_[node];
    if (group == GroupKeys::kNone) {
        group = static_cast<std::uint32_t>(groups_.size());
        groups_.push_back(node);
        for (const AggregateSlot& slot : row_.aggregates) accumulators_.emplace_back(slot.call);
    }
    for (std::size_t i = 0; i < arguments_.size(); ++i) {
        const Arguments& arguments = arguments_[i];
        if (arguments.counts) accumulators_[group * arguments_.size() + i].Add(arguments.x, arguments.y);
    }
}

bool Summary::Passes(std::size_t group, std::int64_t rowNumber) const {
    const GroupSource source(*this, group, rowNumber);
    for (std::size_t i = 0; i < row_.columns.size(); ++i) {
        const CompiledColumn& column = row_.columns[i];
        if (!column.IsFilter() || !deferred_[i]) continue;
        if (!IsTrue(Evaluate(row_, column.program, source))) return false;
    }
    return true;
}

// Leaves in `node` the key of the other fields.
std::string Summary::PivotOf(std::uint32_t& node) const {
    std::string path;
    for (bool isFirst = true; keys_.ParentOf(node) != GroupKeys::kNone; node = keys_.ParentOf(node)) {
        if (!std::exchange(isFirst, false)) path += '.';
        path += keys_.KeyOf(node);
    }
    return path;
}

void Summary::BuildFields(std::size_t group, std::int64_t rowNumber, bool includeAggregates,
                          RowFields& fields) const {
    const GroupSource source(*this, group, rowNumber);
    std::uint32_t node = groups_[group];
    const std::string pivot = PivotOf(node);
    std::string_view key = keys_.KeyOf(node);
    fields.Clear();
    std::size_t field = 0;
    for (std::size_t i = 0; i < row_.columns.size(); ++i) {
        const CompiledColumn& column = row_.columns[i];
        if (column.IsFilter()) continue;
        for (const std::size_t end = field + FieldsOf(column); field < end; ++field) {
            const std::string_view text = TakePart(key);
            if (!deferred_[i]) fields.Add() = field == pivot_ ? pivot : text;
        }
        if (deferred_[i] && (includeAggregates || !column.hasAggregate))
            AddColumn(fields, row_, column, source);
    }
    fields.pivot = RowFields::kNoPivot;
}

}  // namespace Metrics::detail
