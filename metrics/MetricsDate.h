#pragma once

#include <compare>
#include <concepts>
#include <cstdint>
#include <type_traits>

#include "metrics/Export.h"

namespace Metrics {

/// An integer that counts something; a truth value is not one.
template <typename T>
concept CountingInteger = std::integral<T> && !std::same_as<std::remove_cv_t<T>, bool>;

/// A date of the proleptic Gregorian calendar, kept as a day number: the Julian Day Number less one, so
/// that 2000-01-01 is day 2451544. A plain value; any thread may use its own copy.
///
/// Every day number has a calendar date. Years are counted with a year 0 (1 BC) on the way out; on the way
/// in there is none, -1 is 1 BC. No function fails for any argument.
class METRICS_API MetricsDate {
  public:
    /// Day -1: no date.
    constexpr MetricsDate() = default;
    /// The day with that number. An unsigned number counts as the signed one of its width; what 32 bits
    /// cannot hold becomes -2147483648.
    template <CountingInteger T>
    constexpr MetricsDate(T day) : day_(Narrow(static_cast<std::make_signed_t<T>>(day))) {}
    /// The day of `date`. A date has no time part, so `ticks` is ignored.
    constexpr MetricsDate(const MetricsDate& date, unsigned long /*ticks*/) : day_(date.day_) {}

    constexpr operator long() const { return day_; }
    constexpr operator double() const { return day_; }

    /// The day number.
    constexpr std::int32_t Day() const { return day_; }
    constexpr const MetricsDate& datepart() const { return *this; }
    constexpr unsigned long timepart() const { return 0; }

    /// The date of a calendar day. Defined for years from 1 BC to those of the last day number; outside
    /// the result is some day number or -2147483648.
    static MetricsDate gregoriandate(long year, char month, char day);
    /// Splits a date into year, month (1 to 12) and day of the month (1 to 31).
    static void gregorianparts(long& year, char& month, char& day, const MetricsDate& date);
    /// 1 = Sunday to 7 = Saturday.
    static char gregorianweekday(const MetricsDate& date);
    /// 1 = Monday to 7 = Sunday.
    static char iso8601weekday(const MetricsDate& date);
    /// 1 = 1 January to 365 or 366.
    static short gregorianyearday(const MetricsDate& date);
    /// Week of the year; weeks start on Sunday and week 1 holds 1 January.
    static char gregorianweek(const MetricsDate& date);
    /// ISO 8601 week number, 1 to 53.
    static char iso8601week(const MetricsDate& date);

    friend constexpr bool operator==(const MetricsDate&, const MetricsDate&) = default;
    friend constexpr auto operator<=>(const MetricsDate&, const MetricsDate&) = default;
    template <CountingInteger T>
    friend constexpr bool operator==(const MetricsDate& date, T day) {
        return date.day_ == MetricsDate(day).day_;
    }
    template <CountingInteger T>
    friend constexpr auto operator<=>(const MetricsDate& date, T day) {
        return date.day_ <=> MetricsDate(day).day_;
    }

  private:
    static constexpr std::int32_t Narrow(std::int64_t day) {
        return day == static_cast<std::int32_t>(day) ? static_cast<std::int32_t>(day) : INT32_MIN;
    }

    std::int32_t day_ = -1;
};

}  // namespace Metrics
