#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "metrics/ColumnType.h"
#include "metrics/rows/CompiledRow.h"
#include "metrics/rows/Gather.h"

namespace Metrics::detail {

// What an expression comes to. Text is borrowed.
struct Value {
    enum class Kind : std::uint8_t {
        Empty,    // nothing was counted, or computed from such; stays empty whatever is done with it
        Nothing,  // an attribute that is not there: an empty text to compare, empty to calculate with
        Number,
        Integer,  // of a count: a number that has no decimals as text
        Boolean,
        Text,
        Literal,  // a string literal: compared as text
    };

    Kind kind = Kind::Empty;
    double number = 0;      // of Number, Integer and Boolean
    std::string_view text;  // of Text and Literal; of a Number how it was written, if it was

    static Value OfNumber(double number) { return {Kind::Number, number, {}}; }
    static Value OfInteger(std::int64_t number) { return {Kind::Integer, static_cast<double>(number), {}}; }
    static Value OfBoolean(bool truth) { return {Kind::Boolean, truth ? 1.0 : 0.0, {}}; }
    bool IsEmpty() const { return kind == Kind::Empty || kind == Kind::Nothing; }
    bool IsText() const { return kind == Kind::Text || kind == Kind::Literal; }
};

// Where an expression finds what it asks for.
class ValueSource {
  public:
    virtual CellView OperandAt(std::uint32_t operand) const = 0;
    virtual Value AggregateAt(std::uint32_t slot) const = 0;
    virtual std::int64_t RowNumber() const = 0;

  protected:
    ~ValueSource() = default;
};

inline Value ValueOf(const CellView& cell) {
    switch (cell.state) {
        case CellView::State::Missing: return {};
        case CellView::State::Empty: return {Value::Kind::Nothing, 0, {}};
        case CellView::State::Value: return {Value::Kind::Text, 0, cell.text};
    }
    return {};
}

Value EvaluateSteps(const CompiledRow& row, const Program& program, const ValueSource& source);

// Most columns are one operand as it stands.
inline Value Evaluate(const CompiledRow& row, const Program& program, const ValueSource& source) {
    if (program.size() == 1 && program.front().kind == Step::Kind::Operand)
        return ValueOf(source.OperandAt(program.front().index));
    return EvaluateSteps(row, program, source);
}

// One operator or function on two values.
Value Apply(Function function, const Value& left, const Value& right);

double ToNumber(const Value& value);
// What lets a row through a filter, and what && and || go by.
bool IsTrue(const Value& value);

// Appends the value as the column type prints it; nothing for an empty one.
void AppendValue(std::string& out, const Value& value, ColumnType type, unsigned precision);

// A date-time in the form in which it prints, less its fraction; false when it is none.
bool AppendDateTime(std::string& out, std::string_view text);

}  // namespace Metrics::detail
