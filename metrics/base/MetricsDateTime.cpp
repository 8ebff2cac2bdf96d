#include "metrics/MetricsDateTime.h"

namespace Metrics {

// Defined here, for programs that are compiled without optimisation and take them from the shared library.
const std::uint64_t MetricsDateTime::scaling;
const std::uint64_t MetricsDateTime::subsecond_res;

// A double converts to an integer only where that holds it, so each half of the range goes its own way.
MetricsDateTime::MetricsDateTime(double days) {
    constexpr double kTwoTo63 = 9223372036854775808.0;
    const double ticks = days * static_cast<double>(scaling);
    if (ticks >= -kTwoTo63 && ticks < kTwoTo63)
        ticks_ = static_cast<std::uint64_t>(static_cast<std::int64_t>(ticks));
    else if (ticks >= kTwoTo63 && ticks < 2 * kTwoTo63)
        ticks_ = static_cast<std::uint64_t>(ticks);
}

}  // namespace Metrics
