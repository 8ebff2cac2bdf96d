#pragma once

#include <cstdint>
#include <variant>

#include "metrics/rows/Value.h"

namespace Metrics::detail {

// Running statistics of one variable. The spread is kept about the running mean, so that large values that
// differ little lose nothing.
struct VariableRecord {
    std::uint64_t count = 0;
    double min = 0;
    double max = 0;
    double sum = 0;
    double mean = 0;
    double m2 = 0;

    void Add(double value);
};

// Running statistics of two variables together, in one pass.
struct CoMomentRecord {
    std::uint64_t n = 0;
    double meanX = 0;
    double meanY = 0;
    double m2X = 0;
    double m2Y = 0;
    double coMoment = 0;

    void Add(double x, double y);
};

// One aggregate of one group.
class Accumulator {
  public:
    explicit Accumulator(const AggregateCall& call) {
        if (!call.y.empty()) record_ = CoMomentRecord();
    }

    void Add(const Value& x, const Value& y);
    Value Result(Function function) const;

  private:
    std::variant<VariableRecord, CoMomentRecord> record_;
};

}  // namespace Metrics::detail
