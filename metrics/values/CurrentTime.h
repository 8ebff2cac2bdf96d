#pragma once

#include <cstdint>

#include "metrics/MetricsDateTime.h"
#include "metrics/platform/Platform.h"

namespace Metrics::detail {

inline constexpr std::uint64_t kUnixEpochTicks = 2440587 * MetricsDateTime::scaling;  // 1970-01-01

/// Milliseconds since 1970 as ticks of MetricsDateTime: a multiply and an add give what the calendar gives,
/// because every day has the same number of them.
inline std::uint64_t TicksOf(std::int64_t milliseconds) noexcept {
    constexpr std::int64_t kTicksPerMillisecond = MetricsDateTime::subsecond_res / 1000;
    return static_cast<std::uint64_t>(milliseconds * kTicksPerMillisecond) + kUnixEpochTicks;
}

/// Now in UTC, in ticks of MetricsDateTime; one read of the system clock. The resolution is one millisecond.
inline std::uint64_t CurrentTicks() noexcept {
    return TicksOf(platform::SystemTimeMilliseconds());
}

}  // namespace Metrics::detail
