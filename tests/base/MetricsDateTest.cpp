#include "metrics/MetricsDate.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>

#include "tests/support/Memory.h"

namespace Metrics {
namespace {

using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr int kUnixEpoch = 2440587;

sys_days FirstOfYear(std::chrono::year year) {
    return year / 1 / 1;
}

int DayOfYear(sys_days day) {
    return static_cast<int>((day - FirstOfYear(year_month_day(day).year())).count()) + 1;
}

// A week belongs to the year of its Thursday.
int IsoWeek(sys_days day) {
    const sys_days thursday = day + std::chrono::days(4 - std::chrono::weekday(day).iso_encoding());
    return (DayOfYear(thursday) - 1) / 7 + 1;
}

int SundayWeek(sys_days day) {
    const std::chrono::weekday first(FirstOfYear(year_month_day(day).year()));
    return (DayOfYear(day) - 1 + static_cast<int>(first.c_encoding())) / 7 + 1;
}

void ExpectSameDay(int number) {
    const MetricsDate date(number);
    const sys_days day{std::chrono::days(number - kUnixEpoch)};
    const year_month_day expected(day);
    long year = 0;
    char month = 0;
    char dayOfMonth = 0;
    MetricsDate::gregorianparts(year, month, dayOfMonth, date);
    ASSERT_EQ(year_month_day(std::chrono::year(static_cast<int>(year)),
                             std::chrono::month(static_cast<unsigned>(month)),
                             std::chrono::day(static_cast<unsigned>(dayOfMonth))),
              expected)
        << number;
    ASSERT_EQ(MetricsDate::iso8601weekday(date), static_cast<int>(std::chrono::weekday(day).iso_encoding()));
    ASSERT_EQ(MetricsDate::gregorianweekday(date),
              static_cast<int>(std::chrono::weekday(day).c_encoding()) + 1);
    if (year < 1) return;
    ASSERT_EQ(MetricsDate::gregoriandate(year, month, dayOfMonth), number);
    ASSERT_EQ(MetricsDate::gregorianyearday(date), DayOfYear(day)) << number;
    ASSERT_EQ(MetricsDate::gregorianweek(date), SundayWeek(day)) << number;
    ASSERT_EQ(MetricsDate::iso8601week(date), IsoWeek(day)) << number;
}

TEST(MetricsDate, AgreesWithTheCalendarOnEveryDayOfItsCycles) {
    const int first = MetricsDate::gregoriandate(1, 1, 1).Day();
    const int last = MetricsDate::gregoriandate(2801, 1, 1).Day();
    constexpr int kStep = Testing::kThreadSanitized ? 101 : 1;
    for (int number = first; number < last && !HasFatalFailure(); number += kStep) ExpectSameDay(number);
    for (int number = 0; number < first && !HasFatalFailure(); number += 13) ExpectSameDay(number);
    for (int number = last; number < 13000000 && !HasFatalFailure(); number += 997) ExpectSameDay(number);
}

TEST(MetricsDate, KnownDays) {
    EXPECT_EQ(MetricsDate::gregoriandate(2000, 1, 1), 2451544);
    EXPECT_EQ(MetricsDate::gregoriandate(2012, 11, 1), 2456232);
    EXPECT_EQ(MetricsDate::gregoriandate(-1, 3, 1), MetricsDate::gregoriandate(0, 3, 1)) << "no year 0";
    EXPECT_EQ(MetricsDate::iso8601week(MetricsDate::gregoriandate(2005, 1, 1)), 53);
    EXPECT_EQ(MetricsDate::iso8601week(MetricsDate::gregoriandate(2008, 12, 29)), 1);
}

TEST(MetricsDate, TakesEveryIntegerAndNarrowsWithATest) {
    EXPECT_EQ(MetricsDate(), -1);
    EXPECT_EQ(MetricsDate(static_cast<char>(-3)), -3);
    EXPECT_EQ(MetricsDate(static_cast<short>(-3)), MetricsDate(-3LL));
    EXPECT_EQ(MetricsDate(ULONG_MAX), -1);
    EXPECT_EQ(MetricsDate(1LL << 31), INT_MIN);
    EXPECT_EQ(MetricsDate(MetricsDate(7), 12345), 7U);
    EXPECT_LT(MetricsDate(7), 8L);
    EXPECT_EQ(static_cast<double>(MetricsDate(7)), 7.0);
}

TEST(MetricsDate, NoArgumentIsTooFarOut) {
    for (long year : {LONG_MIN, -2147483647L, -4717L, 0L, 5874898L, 2147483647L, LONG_MAX})
        for (int month : {-128, 0, 2, 13, 127})
            MetricsDate::gregoriandate(year, static_cast<char>(month), static_cast<char>(-month));
    for (int number : {INT_MIN, INT_MIN + 1, -1000000, -1, INT_MAX - 1, INT_MAX}) {
        long year = 0;
        char month = 0;
        char day = 0;
        MetricsDate::gregorianparts(year, month, day, number);
        EXPECT_TRUE(month >= 1 && month <= 12 && day >= 1 && day <= 31) << number;
        EXPECT_GE(MetricsDate::gregorianweekday(number), 1);
        MetricsDate::gregorianyearday(number);
        MetricsDate::gregorianweek(number);
        MetricsDate::iso8601week(number);
    }
}

}  // namespace
}  // namespace Metrics
