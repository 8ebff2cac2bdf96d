#include "metrics/rows/Aggregate.h"

#include <algorithm>
#include <cmath>

namespace Metrics::detail {

void VariableRecord::Add(double value) {
    min = count == 0 ? value : std::min(min, value);
    max = count == 0 ? value : std::max(max, value);
    sum += value;
    ++count;
    const double before = value - mean;
    mean += before / static_cast<double>(count);
    m2 += before * (value - mean);
}

void CoMomentRecord::Add(double x, double y) {
    const auto count = static_cast<double>(++n);
    const double dx = x - meanX, dy = y - meanY, f = (count - 1) / count;
    m2X += dx * dx * f;  // nothing for the first pair, whose f is 0
    m2Y += dy * dy * f;
    coMoment += dx * dy * f;
    meanX += dx / count;
    meanY += dy / count;
}

void Accumulator::Add(const Value& x, const Value& y) {
    if (x.IsEmpty()) return;
    if (auto* const variable = std::get_if<VariableRecord>(&record_)) {
        variable->Add(ToNumber(x));
    } else if (!y.IsEmpty()) {
        std::get<CoMomentRecord>(record_).Add(ToNumber(x), ToNumber(y));
    }
}

Value Accumulator::Result(Function function) const {
    const auto* const given = std::get_if<VariableRecord>(&record_);
    const auto* const givenPair = std::get_if<CoMomentRecord>(&record_);
    const VariableRecord& variable = given != nullptr ? *given : VariableRecord();
    const CoMomentRecord& pair = givenPair != nullptr ? *givenPair : CoMomentRecord();
    const auto count = static_cast<double>(variable.count);
    const auto pairs = static_cast<double>(pair.n);
    const auto when = [](bool defined, double value) { return defined ? Value::OfNumber(value) : Value(); };
    switch (function) {
        case Function::Sum: return Value::OfNumber(variable.sum);
        case Function::Count: return Value::OfInteger(static_cast<std::int64_t>(variable.count));
        case Function::AggregateMin: return when(count > 0, variable.min);
        case Function::AggregateMax: return when(count > 0, variable.max);
        case Function::Mean: return when(count > 0, variable.sum / count);
        case Function::Variance: return when(count > 1, std::max(0.0, variable.m2 / (count - 1)));
        case Function::Deviation: return when(count > 1, std::sqrt(std::max(0.0, variable.m2 / (count - 1))));
        case Function::Covariance: return when(pairs > 1, pair.coMoment / (pairs - 1));
        case Function::Correlation: {
            const double spread = pair.m2X * pair.m2Y;
            return when(spread > 0, pair.coMoment / std::sqrt(spread));
        }
        default: return {};
    }
}

}  // namespace Metrics::detail
