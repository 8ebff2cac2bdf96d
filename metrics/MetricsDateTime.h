#pragma once

#include <compare>
#include <cstdint>

#include "metrics/Export.h"
#include "metrics/MetricsDate.h"

namespace Metrics {

/// A point in time (UTC wherever the library makes one): ticks of 1/10000 s from the start of day number 0
/// of MetricsDate. A plain value; any thread may use its own copy. No function fails for any argument.
///
///     MetricsDateTime noon(MetricsDate::gregoriandate(2013, 4, 8), 12 * 3600 * 10000);
class METRICS_API MetricsDateTime {
  public:
    /// Ticks per day and ticks per second.
    static const std::uint64_t scaling = 864000000;
    static const std::uint64_t subsecond_res = 10000;

    /// All ones: no time.
    constexpr MetricsDateTime() = default;
    /// An unsigned integer of any width counts ticks.
    template <CountingInteger T>
    requires std::is_unsigned_v<T>
    constexpr MetricsDateTime(T ticks) : ticks_(ticks) {}
    /// A signed integer of any width counts whole days; the result is a midnight.
    template <CountingInteger T>
    requires std::is_signed_v<T>
    constexpr MetricsDateTime(T days) : ticks_(static_cast<std::uint64_t>(days) * scaling) {}
    /// Days with a fraction. Negative days wrap like negative whole days; what is no number or beyond
    /// 64 bits gives no time.
    MetricsDateTime(double days);
    /// `ticks` after the midnight that starts `date`.
    constexpr MetricsDateTime(const MetricsDate& date, unsigned long ticks)
        : ticks_(static_cast<std::uint64_t>(date.Day()) * scaling + ticks) {}

    /// The whole count, in 1/10000 s.
    constexpr std::uint64_t Ticks() const { return ticks_; }
    /// The day; -2147483648 when its number does not fit a MetricsDate.
    constexpr MetricsDate GetDate() const { return ticks_ / scaling; }
    /// Whole seconds since midnight, 0 to 86399.
    constexpr unsigned long GetSeconds() const {
        return static_cast<unsigned long>(ticks_ % scaling / subsecond_res);
    }
    /// Ticks since the last whole second, 0 to 9999.
    constexpr unsigned long GetSubseconds() const {
        return static_cast<unsigned long>(ticks_ % subsecond_res);
    }

    friend constexpr bool operator==(const MetricsDateTime&, const MetricsDateTime&) = default;
    friend constexpr auto operator<=>(const MetricsDateTime&, const MetricsDateTime&) = default;

  private:
    std::uint64_t ticks_ = UINT64_MAX;
};

}  // namespace Metrics
