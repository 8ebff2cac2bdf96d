#include "metrics/MetricsDateTime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <limits>

#include "tests/support/Memory.h"

namespace Metrics {
namespace {

void ExpectSameDay(int number) {
    using namespace std::chrono;
    constexpr int kUnixEpoch = 2440587;
    const sys_days day{days(number - kUnixEpoch)};
    const year_month_day date(day);
    const std::chrono::weekday weekday(day);
    long year = 0;
    char month = 0, dayOfMonth = 0;
    MetricsDate::gregorianparts(year, month, dayOfMonth, number);
    ASSERT_EQ(year, int{date.year()}) << number;
    ASSERT_EQ(month, static_cast<char>(unsigned{date.month()})) << number;
    ASSERT_EQ(dayOfMonth, static_cast<char>(unsigned{date.day()})) << number;
    ASSERT_EQ(MetricsDate::iso8601weekday(number), static_cast<char>(weekday.iso_encoding()));
    ASSERT_EQ(MetricsDate::gregorianweekday(number), static_cast<char>(weekday.c_encoding() + 1));
    if (year < 1) return;
    const sys_days newYear = date.year() / 1 / 1;
    const auto sinceNewYear = (day - newYear).count();
    ASSERT_EQ(MetricsDate::gregoriandate(year, month, dayOfMonth), number);
    ASSERT_EQ(MetricsDate::gregorianyearday(number), sinceNewYear + 1) << number;
    ASSERT_EQ(MetricsDate::gregorianweek(number),
              (sinceNewYear + static_cast<int>(std::chrono::weekday(newYear).c_encoding())) / 7 + 1)
        << number;
    // A week belongs to the year of its Thursday.
    const sys_days thursday = day + days(4) - days(weekday.iso_encoding());
    const sys_days itsNewYear = year_month_day(thursday).year() / 1 / 1;
    ASSERT_EQ(MetricsDate::iso8601week(number), (thursday - itsNewYear).count() / 7 + 1) << number;
}

TEST(MetricsDate, AgreesWithTheCalendarOnEveryDayOfItsCycles) {
    EXPECT_EQ(MetricsDate::gregoriandate(2000, 1, 1), 2451544);
    EXPECT_EQ(MetricsDate::gregoriandate(-1, 3, 1), MetricsDate::gregoriandate(0, 3, 1)) << "no year 0";
    const int first = MetricsDate::gregoriandate(1, 1, 1).Day();
    const int last = MetricsDate::gregoriandate(2801, 1, 1).Day();
    constexpr int kStep = Testing::kThreadSanitized ? 101 : 1;
    for (int number = first; number < last && !HasFatalFailure(); number += kStep) ExpectSameDay(number);
    for (int number = 0; number < first && !HasFatalFailure(); number += 13) ExpectSameDay(number);
    for (int number = last; number < 13000000 && !HasFatalFailure(); number += 997) ExpectSameDay(number);
}

TEST(MetricsDate, NoArgumentIsTooFarOut) {
    for (long year : {LONG_MIN, -2147483647L, -4717L, 0L, 5874898L, 2147483647L, LONG_MAX})
        for (int month : {-128, 0, 2, 13, 127})
            MetricsDate::gregoriandate(year, static_cast<char>(month), static_cast<char>(-month));
    for (int number : {INT_MIN, INT_MIN + 1, -1000000, -1, INT_MAX - 1, INT_MAX}) {
        long year = 0;
        char month = 0, day = 0;
        MetricsDate::gregorianparts(year, month, day, number);
        EXPECT_TRUE(month >= 1 && month <= 12 && day >= 1 && day <= 31) << number;
        EXPECT_GE(MetricsDate::gregorianweekday(number), 1);
        MetricsDate::gregorianyearday(number);
        MetricsDate::gregorianweek(number);
        MetricsDate::iso8601week(number);
    }
}

TEST(MetricsDateTime, SignedIntegersAndFractionsAreDaysUnsignedIntegersTicks) {
    EXPECT_EQ(MetricsDateTime(static_cast<short>(3)).Ticks(), 3 * MetricsDateTime::scaling);
    EXPECT_EQ(MetricsDateTime(3L), MetricsDateTime(3));
    EXPECT_EQ(MetricsDateTime(3U).Ticks(), 3U);
    EXPECT_EQ(MetricsDateTime(-1).Ticks(), 0 - MetricsDateTime::scaling);
    EXPECT_EQ(MetricsDateTime(-1.0), MetricsDateTime(-1));
    EXPECT_EQ(MetricsDateTime(1.5).Ticks(), 1296000000U);
    const double high = 1.5 * 9223372036854775808.0;  // ticks that only an unsigned number holds
    EXPECT_EQ(MetricsDateTime(high / 864000000.0).Ticks(), 13835058055282163712U);
    for (double days : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(MetricsDateTime(days).Ticks(), UINT64_MAX);
}

TEST(MetricsDateTime, HasADateSecondsAndTheirFraction) {
    const MetricsDateTime time(MetricsDate(2456390), 3600 * 10000 + 42);
    EXPECT_EQ(time.GetDate(), 2456390);
    EXPECT_EQ(time.GetSeconds(), 3600U);
    EXPECT_EQ(time.GetSubseconds(), 42U);
    EXPECT_LT(time, MetricsDateTime(2456391));
    EXPECT_EQ(MetricsDateTime().GetDate(), INT_MIN) << "no time";
}

}  // namespace
}  // namespace Metrics
