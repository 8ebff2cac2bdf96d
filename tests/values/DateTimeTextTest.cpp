#include "metrics/values/DateTimeText.h"

#include <gtest/gtest.h>

#include <string>

namespace Metrics::detail {
namespace {

std::string Write(DateTimeText& times, std::uint64_t ticks, bool subseconds = true) {
    char text[DateTimeText::kMaxSize];
    return {text, times.Write(text, ticks, subseconds)};
}

TEST(DateTimeText, WhatIsRememberedNeverShowsThrough) {
    constexpr std::uint64_t kDay = 864000000;
    const std::uint64_t midnight = 2456390 * kDay;
    DateTimeText times;
    EXPECT_EQ(Write(times, midnight - 1), "2013-04-07 23:59:59.9999");
    EXPECT_EQ(Write(times, midnight), "2013-04-08 00:00:00.0000");
    EXPECT_EQ(Write(times, midnight + 420), "2013-04-08 00:00:00.0420");
    EXPECT_EQ(Write(times, midnight + 420, false), "2013-04-08 00:00:00");
    EXPECT_EQ(Write(times, midnight - 10000, false), "2013-04-07 23:59:59");
    EXPECT_EQ(Write(times, midnight + kDay / 2 + 610000), "2013-04-08 12:01:01.0000");
}

TEST(DateTimeText, OutsideTheCalendarItIsClamped) {
    DateTimeText times;
    EXPECT_EQ(Write(times, 0), "-4713-11-25 00:00:00.0000");
    EXPECT_EQ(Write(times, UINT64_MAX), "5874898-06-04 23:59:59.9999");
    EXPECT_EQ(Write(times, UINT64_MAX - 1, false), "5874898-06-04 23:59:59");
}

}  // namespace
}  // namespace Metrics::detail
