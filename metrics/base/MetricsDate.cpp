#include "metrics/MetricsDate.h"

#include <algorithm>
#include <cmath>

namespace Metrics {

namespace {

std::int64_t Floor(double value) {
    return static_cast<std::int64_t>(std::floor(value));
}

std::int64_t FloorDiv(std::int64_t value, std::int64_t divisor) {
    return (value - (value % divisor + divisor) % divisor) / divisor;
}

char WeekdayAfter(const MetricsDate& date, std::int64_t shift) {
    return static_cast<char>(((date.Day() + shift) % 7 + 7) % 7 + 1);
}

// Here years run through 0, so that a year's neighbours are always one away. The sum is formed in 64 bits
// and then cut to the unsigned 32 bits that define it; what falls out of range becomes -2147483648.
MetricsDate DayOf(std::int64_t year, int month, int day) {
    if (month < 3) {
        month += 12;
        --year;
    }
    const std::int64_t century = FloorDiv(year, 100);
    const std::int64_t sum = Floor(30.6001 * (month + 1)) + Floor(365.25 * static_cast<double>(year + 4716)) +
                             FloorDiv(century, 4) - century + day + 2;
    return static_cast<std::int64_t>(static_cast<double>(static_cast<std::uint32_t>(sum)) - 1524.5);
}

MetricsDate FirstOfYear(std::int64_t year) {
    return DayOf(year, 1, 1);
}

long YearOf(const MetricsDate& date) {
    long year = 0;
    char month = 0;
    char day = 0;
    MetricsDate::gregorianparts(year, month, day, date);
    return year;
}

std::int16_t Low16(const MetricsDate& date) {
    return static_cast<std::int16_t>(date.Day());
}

int IsoWeek(const MetricsDate& date, long year) {
    const int yearDay = static_cast<std::int16_t>(Low16(date) - Low16(FirstOfYear(year)) + 1);
    return (yearDay - MetricsDate::iso8601weekday(date) + 10) / 7;
}

}  // namespace

MetricsDate MetricsDate::gregoriandate(long year, char month, char day) {
    const std::int64_t bounded = std::clamp<std::int64_t>(year, INT32_MIN, INT32_MAX);
    return DayOf(bounded < 0 ? bounded + 1 : bounded, month, day);
}

void MetricsDate::gregorianparts(long& year, char& month, char& day, const MetricsDate& date) {
    const std::int64_t z = std::int64_t{date.day_} + 1;
    const std::int64_t alpha = Floor((static_cast<double>(z) - 1867216.25) / 36524.25);
    const std::int64_t b = z + 1525 + alpha - FloorDiv(alpha, 4);
    const std::int64_t k = Floor((static_cast<double>(b) - 122.1) / 365.25);
    const std::int64_t dayOfYear = b - Floor(365.25 * static_cast<double>(k));
    const std::int64_t e = Floor(static_cast<double>(dayOfYear) / 30.6001);
    const std::int64_t m = e - 1 > 12 ? e - 13 : e - 1;
    day = static_cast<char>(dayOfYear - Floor(30.6001 * static_cast<double>(e)));
    month = static_cast<char>(m);
    year = static_cast<long>(k - 4715 - (m >= 3 ? 1 : 0));
}

char MetricsDate::gregorianweekday(const MetricsDate& date) {
    return WeekdayAfter(date, 2);
}

char MetricsDate::iso8601weekday(const MetricsDate& date) {
    return WeekdayAfter(date, 1);
}

short MetricsDate::gregorianyearday(const MetricsDate& date) {
    return static_cast<short>(date.Day() - std::int64_t{FirstOfYear(YearOf(date)).Day()} + 1);
}

char MetricsDate::gregorianweek(const MetricsDate& date) {
    return static_cast<char>((gregorianyearday(date) - 1 + gregorianweekday(FirstOfYear(YearOf(date))) + 6) /
                             7);
}

char MetricsDate::iso8601week(const MetricsDate& date) {
    const long year = YearOf(date);
    const int week = IsoWeek(date, year);
    if (week == 0) return static_cast<char>(IsoWeek(date, year - 1));
    if (week < 53) return static_cast<char>(week);
    const MetricsDate fourth = DayOf(year + 1L, 1, 4);
    const std::int64_t nextMonday = std::int64_t{fourth.Day()} - iso8601weekday(fourth) + 1;
    return static_cast<char>(nextMonday <= date.Day() ? 1 : 53);
}

}  // namespace Metrics
