#pragma once

#include <cstdint>

#include "metrics/MetricsDateTime.h"
#include "metrics/platform/Platform.h"

namespace Metrics::detail {

/// Now in UTC, in ticks of MetricsDateTime. One read of the system clock, a multiply and an add: the ticks
/// are those that the calendar gives, because every day has the same number of them. The resolution is one
/// millisecond.
inline std::uint64_t CurrentTicks() noexcept {
    constexpr std::uint64_t kUnixEpochTicks = 2440587 * MetricsDateTime::scaling;  // 1970-01-01
    constexpr std::int64_t kTicksPerMillisecond = MetricsDateTime::subsecond_res / 1000;
    return static_cast<std::uint64_t>(platform::SystemTimeMilliseconds() * kTicksPerMillisecond) +
           kUnixEpochTicks;
}

}  // namespace Metrics::detail
