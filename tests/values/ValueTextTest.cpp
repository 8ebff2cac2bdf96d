#include "metrics/values/ValueText.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <locale>
#include <random>

namespace Metrics {
namespace {

using enum MetricsValue::ToStringFlag;

TEST(ValueText, SaysWhatTheValueIsAndEscapesAsTheFlagsSay) {
    const struct {
        MetricsValue value;
        unsigned flags;
        const char* expected;
    } cases[] = {
        {INT64_MIN, 0, "-9223372036854775808"},
        {7, AlwaysQuote | CsvComma, "\"7\""},
        {true, 0, "true"},
        {false, AlwaysQuote, "\"false\""},
        {1.5, 0, "1.500000"},
        {-std::numeric_limits<double>::infinity(), 0, "-inf"},
        {std::numeric_limits<double>::quiet_NaN(), 0, "nan"},
        {-0.0000005, AlwaysQuote, "\"-0.000000\""},
        {MetricsDateTime(2456390), 0, "2013-04-08 00:00:00"},
        {MetricsDateTime(MetricsDate(2456390), 650000000 + 91420), AlwaysQuote | WithSubseconds,
         "\"2013-04-08 18:03:29.1420\""},
        {FourCC("ABCD"), 0, "ABCD"},
        {FourCC(0x41), AlwaysQuote, "\"A\""},
        {FourCC(0x801F207F), 0, " \x7F"},
        {EightCC("elapsed"), 0, "elapsed"},
        {Opaque64(0x4142), AlwaysQuote, ""},
        {"a,b", CsvComma, "\"a,b\""},
        {"a|b", CsvComma, "a|b"},
        {"a|b", CsvPipe, "\"a|b\""},
        {"a|b", CsvComma | CsvPipe, "a|b"},
        {"x\"y", 0, "x\"y"},
        {"x\"y", AlwaysQuote, "\"x\"y\""},
        {"x\"y", CsvComma, "\"x\"\"y\""},
        {"x\"y", XmlEscape, "x&quot;y"},
        {"x\"y", XmlEscape | CsvPipe, "\"x&quot;y\""},
        {"\r\n", EscapeNewlines, "\\n"},
        {"a\r\nb", 0, "a\nb"},
        {"a\nb", CsvComma, "\"a\nb\""},
        {"a\nb", CsvComma | EscapeNewlines, "a\\nb"},
        {"a\nb", XmlEscape | EscapeNewlines, "a\\nb"},
        {"&'<>\\", XmlEscape, "&amp;&apos;&lt;&gt;\\\\"},
        {"\t\n\x01\x1F\x7F\xC3", XmlEscape, "&#x9;&#xA;\x7F\xC3"},
        {"\t\x01", EscapeNewlines | CsvComma, "\t\x01"},
        {MetricsValue::Ref("borrowed & kept"), XmlEscape, "borrowed &amp; kept"},
        {L"caf\u00E9 \u20AC", AlwaysQuote, "\"caf\xE9 \xAC\""},
        {L"a\u012Cb", CsvComma, "\"a,b\""},
    };
    for (const auto& [value, flags, expected] : cases) EXPECT_EQ(value.ToString(flags), expected) << flags;
    EXPECT_EQ(MetricsValue(L"a\u0100b").ToString(XmlEscape), std::string("a\0b", 3));
}

TEST(ValueText, SpecialCharactersAreFoundAnywhere) {
    for (std::size_t at = 0; at < 20; ++at) {
        for (int code = 1; code < 128; ++code) {
            const std::string c = code == '\r' ? "" : std::string(1, static_cast<char>(code));
            const std::string before(at, '\xC3'), after(20 - at, ' ');
            const MetricsValue value = before + static_cast<char>(code) + after;
            ASSERT_EQ(value.ToString(EscapeNewlines), before + (c == "\n" ? "\\n" : c) + after)
                << at << ' ' << code;
            ASSERT_EQ(value.ToString(CsvPipe | AlwaysQuote),
                      '"' + before + (c == "\"" ? "\"\"" : c) + after + '"')
                << at << ' ' << code;
        }
    }
}

TEST(ValueText, DoublesRoundLikePrintf) {
    std::mt19937_64 random(20130408);
    for (int i = 0; i < 20000; ++i) {
        const std::uint64_t bits = random();
        const double number = i % 2 == 0 ? std::bit_cast<double>(bits)
                                         : static_cast<double>(static_cast<std::int64_t>(bits >> 20)) / 1e7;
        if (std::isnan(number)) continue;  // C libraries differ in its sign
        char expected[400];
        std::snprintf(expected, sizeof expected, "%f", number);
        ASSERT_EQ(MetricsValue(number).ToString(0), expected);
    }
    EXPECT_EQ(MetricsValue(std::numeric_limits<double>::lowest()).ToString(AlwaysQuote).size(), 319U);
}

TEST(ValueText, TheLocaleDoesNotMatter) {
    struct Grouping : std::numpunct<char> {
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    EXPECT_EQ(MetricsValue(1234567.25).ToString(0), "1234567.250000");
    EXPECT_EQ(MetricsValue(1234567).ToString(0), "1234567");
    std::locale::global(before);
}

TEST(DateTimeText, WhatIsRememberedNeverShowsThrough) {
    constexpr std::uint64_t kDay = 864000000;
    const std::uint64_t midnight = 2456390 * kDay;
    detail::DateTimeText times;
    const auto write = [&](std::uint64_t ticks, bool subseconds = true) {
        char text[detail::DateTimeText::kMaxSize];
        return std::string(text, times.Write(text, ticks, subseconds));
    };
    EXPECT_EQ(write(midnight - 1), "2013-04-07 23:59:59.9999");
    EXPECT_EQ(write(midnight), "2013-04-08 00:00:00.0000");
    EXPECT_EQ(write(midnight + 420), "2013-04-08 00:00:00.0420");
    EXPECT_EQ(write(midnight + 420, false), "2013-04-08 00:00:00");
    EXPECT_EQ(write(midnight + 10420), "2013-04-08 00:00:01.0420");
    EXPECT_EQ(write(midnight - 10000, false), "2013-04-07 23:59:59");
    EXPECT_EQ(write(midnight + kDay / 2 + 610000), "2013-04-08 12:01:01.0000");
    // Outside the calendar it is clamped.
    EXPECT_EQ(write(0), "-4713-11-25 00:00:00.0000");
    EXPECT_EQ(write(UINT64_MAX), "5874898-06-04 23:59:59.9999");
    EXPECT_EQ(write(UINT64_MAX - 1, false), "5874898-06-04 23:59:59");
}

}  // namespace
}  // namespace Metrics
