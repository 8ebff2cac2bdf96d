#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <memory>

#include "metrics/rows/ColumnSpec.h"
#include "metrics/rows/Numbers.h"
#include "metrics/rows/Value.h"

namespace Metrics::detail {
namespace {

constexpr double kPi = 3.141592654;  // ten digits, on purpose
constexpr double kE = 2.718281828;

double NotANumber() {
    return std::bit_cast<double>(std::uint64_t{0x7FFFFFFFFFFFFFFF});
}

double Remainder(double a, double b) {
    const std::int32_t divisor = ToInt32(b);
    if (divisor == 0) return NotANumber();
    return divisor == -1 ? 0 : ToInt32(a) % divisor;  // the smallest value by -1 would overflow
}

// Halves away from zero; with decimals the intermediate value is a 32-bit integer.
double Round(double a, double decimals) {
    if (decimals == 0) return (a > 0 ? std::floor(a + 0.5) : std::ceil(a - 0.5)) + 0.0;  // 0, never -0
    const double scale = std::pow(10.0, decimals);
    const double half = 0.5 / scale;
    return ToInt32((a < 0 ? a - half : a + half) * scale) / scale;
}

// Not-a-number never goes through: whatever is done with it is 0.
double Calculate(Function function, double a, double b) {
    if (std::isnan(a) || std::isnan(b)) return 0;
    switch (function) {
        case Function::Add: return a + b;
        case Function::Subtract: return a - b;
        case Function::Multiply: return a * b;
        case Function::Divide: return b == 0 ? NotANumber() : a / b;
        case Function::Remainder: return Remainder(a, b);
        case Function::Min: return std::min(a, b);
        case Function::Max: return std::max(a, b);
        case Function::Sqrt: return std::sqrt(a);
        case Function::Pow: return std::pow(a, b);
        case Function::Log: return b == 0 ? std::log(a) : std::log(a) / std::log(b);
        case Function::Exp: return std::exp(a);
        case Function::Abs: return std::abs(a);
        case Function::Round: return Round(a, b);
        case Function::Floor: return std::floor(a);
        case Function::Ceil: return std::ceil(a);
        case Function::Pi: return kPi;
        case Function::E: return kE;
        default: return 0;
    }
}

bool AsWholeNumber(const Value& value, double& number) {
    if (value.kind == Value::Kind::Text) return IsNumber(value.text, number);
    number = value.number;
    return !value.IsText() && !value.IsEmpty();
}

// As a double a number of more than 15 digits would be equal to its neighbours.
bool AsWholeInteger(const Value& value, std::int64_t& number) {
    if (value.kind != Value::Kind::Integer)
        return value.kind != Value::Kind::Literal && IsInteger(value.text, number);
    number = ToInt64(value.number);
    return true;
}

template <class T>
bool Holds(Function function, const T& a, const T& b) {
    switch (function) {
        case Function::Equal: return a == b;
        case Function::NotEqual: return a != b;
        case Function::LessEqual: return a <= b;
        case Function::GreaterEqual: return a >= b;
        case Function::Less: return a < b;
        case Function::Greater: return a > b;
        default: return false;
    }
}

bool Compare(Function function, const Value& left, const Value& right) {
    std::int64_t i = 0, j = 0;
    if (AsWholeInteger(left, i) && AsWholeInteger(right, j)) return Holds(function, i, j);
    double a = 0, b = 0;
    if (AsWholeNumber(left, a) && AsWholeNumber(right, b))
        return !std::isnan(a) && !std::isnan(b) && Holds(function, a, b);
    std::string texts[2];
    AppendValue(texts[0], left, ColumnType::String, kDefaultPrecision);
    AppendValue(texts[1], right, ColumnType::String, kDefaultPrecision);
    return Holds<std::string_view>(function, texts[0], texts[1]);
}

// Most expressions need a few places only; a deep one takes them from the heap.
class Stack {
  public:
    explicit Stack(std::size_t steps) {
        if (steps <= few_.size()) return;
        many_ = std::make_unique<Value[]>(steps);
        base_ = many_.get();
    }
    void Push(const Value& value) { base_[size_++] = value; }
    Value Pop() { return base_[--size_]; }

  private:
    std::array<Value, 12> few_;
    std::unique_ptr<Value[]> many_;
    Value* base_ = few_.data();
    std::size_t size_ = 0;
};

Value Produce(const CompiledRow& row, const Step& step, const ValueSource& source) {
    switch (step.kind) {
        case Step::Kind::Number: return {Value::Kind::Number, step.number, row.texts[step.index]};
        case Step::Kind::Text: return {Value::Kind::Literal, 0, row.texts[step.index]};
        case Step::Kind::Operand: return ValueOf(source.OperandAt(step.index));
        case Step::Kind::RowNumber: return Value::OfInteger(source.RowNumber());
        case Step::Kind::Aggregate: return source.AggregateAt(step.index);
        case Step::Kind::Scalar: break;
    }
    return {};
}

}  // namespace

Value Apply(Function function, const Value& left, const Value& right) {
    using Kind = Value::Kind;
    if (left.kind == Kind::Empty || right.kind == Kind::Empty) return {};
    if (function >= Function::Equal && function <= Function::Greater)
        return Value::OfBoolean(Compare(function, left, right));
    if (function == Function::And) return Value::OfBoolean(IsTrue(left) && IsTrue(right));
    if (function == Function::Or) return Value::OfBoolean(IsTrue(left) || IsTrue(right));
    if (left.kind == Kind::Nothing || right.kind == Kind::Nothing) return {};
    return Value::OfNumber(Calculate(function, ToNumber(left), ToNumber(right)));
}

Value EvaluateSteps(const CompiledRow& row, const Program& program, const ValueSource& source) {
    Stack stack(program.size());
    for (const Step& step : program) {
        if (step.kind != Step::Kind::Scalar) {
            stack.Push(Produce(row, step, source));
            continue;
        }
        const Value right = stack.Pop();
        const Value left = stack.Pop();
        stack.Push(Apply(step.function, left, right));
    }
    return stack.Pop();
}

}  // namespace Metrics::detail
