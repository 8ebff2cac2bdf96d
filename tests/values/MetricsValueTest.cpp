#include "metrics/MetricsValue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace Metrics {
namespace {

static_assert(FourCC("ts").code == 0x7473 && FourCC("time").code == 0x74696D65 && FourCC("").code == 0);
static_assert(EightCC("clock").code == 0x636C6F630000006B && EightCC("end").code == 0x656E64);
static_assert(EightCC("elapsed").code == 0x656C617000736564);
static_assert(!std::is_constructible_v<MetricsValue, void*> && !std::is_convertible_v<int*, MetricsValue>);
static_assert(std::is_nothrow_move_constructible_v<MetricsValue>);

TEST(MetricsValue, EachTypeMakesItsKind) {
    using Type = MetricsValueType;
    const std::pair<MetricsValue, Type> cases[] = {
        {{}, Type::Int64},
        {'a', Type::Int64},
        {-1, Type::Int64},
        {2UL, Type::Int64},
        {3ULL, Type::Int64},
        {true, Type::Bool},
        {1.5, Type::Double},
        {1.5F, Type::Double},
        {MetricsDateTime(3), Type::DateTime},
        {"text", Type::String},
        {std::string("text"), Type::String},
        {std::string_view("text"), Type::String},
        {L"text", Type::WideString},
        {MetricsValue::Ref("text"), Type::StringRef},
        {MetricsValue::Ref(L"text"), Type::WideStringRef},
        {FourCC("time"), Type::FourCC},
        {EightCC("elapsed"), Type::EightCC},
        {Opaque64(1), Type::Opaque64},
    };
    for (const auto& [value, kind] : cases) EXPECT_EQ(value.Kind(), kind) << value.ToString(0);
}

TEST(MetricsValue, ReadsItsPayload) {
    EXPECT_EQ(MetricsValue(-1).AsInt64(), -1);
    EXPECT_EQ(MetricsValue(UINT64_MAX).AsUInt64(), UINT64_MAX);
    EXPECT_TRUE(MetricsValue(true).AsBool());
    EXPECT_EQ(MetricsValue(-2.5).AsDouble(), -2.5);
    EXPECT_EQ(MetricsValue(-2).AsDouble(), -2);
    EXPECT_EQ(MetricsValue(MetricsDateTime(3)).AsDateTime(), MetricsDateTime(3));
    for (const MetricsValue& text : {MetricsValue("7"), MetricsValue(L"7"), MetricsValue::Ref("7")})
        EXPECT_EQ(text.AsInt64(), 0);
    EXPECT_STREQ(MetricsValue(L"7").Text(), "");
}

TEST(MetricsValue, NullTextIsEmpty) {
    const char* narrow = nullptr;
    const wchar_t* wide = nullptr;
    for (const MetricsValue& value : {MetricsValue(narrow), MetricsValue(wide), MetricsValue::Ref(narrow),
                                      MetricsValue::Ref(wide), MetricsValue(std::string_view())})
        EXPECT_EQ(value.ToString(MetricsValue::AlwaysQuote), "\"\"");
}

TEST(MetricsValue, OwnedTextIsDuplicatedBorrowedTextIsNot) {
    char text[] = "before";
    const MetricsValue borrowed = MetricsValue::Ref(text);
    const MetricsValue borrowedCopy = borrowed;
    auto owned = std::make_unique<MetricsValue>(text);
    const MetricsValue ownedCopy = *owned;
    owned.reset();
    text[0] = 'B';
    EXPECT_EQ(borrowedCopy.Text(), text);
    EXPECT_STREQ(ownedCopy.Text(), "before");
}

// Every pair of kinds, so that a forgotten release or a second one shows under the sanitizers.
TEST(MetricsValue, AssignmentKeepsOwnership) {
    const std::vector<MetricsValue> values = {1, "a", L"b", MetricsValue::Ref("c"), Opaque64(5)};
    for (const MetricsValue& from : values) {
        for (MetricsValue to : values) {
            to = from;
            EXPECT_EQ(to, from);
            MetricsValue source = from;
            to = std::move(source);
            EXPECT_EQ(to, from);
            EXPECT_EQ(source, MetricsValue());
        }
        MetricsValue self = from;
        MetricsValue& alias = self;
        self = alias;
        self = std::move(alias);
        EXPECT_EQ(self, from);
    }
    EXPECT_FALSE(MetricsValue("a") == MetricsValue("b") || MetricsValue(L"a") == MetricsValue("a"));
}

TEST(MetricsValue, CurrentTimeIsWhatTheCalendarSays) {
    using namespace std::chrono;
    const auto calendarTicks = [] {
        const auto now = time_point_cast<milliseconds>(system_clock::now());
        const auto day = floor<days>(now);
        const year_month_day date(day);
        return MetricsDateTime(
            MetricsDate::gregoriandate(int{date.year()}, static_cast<char>(unsigned{date.month()}),
                                       static_cast<char>(unsigned{date.day()})),
            static_cast<unsigned long>((now - day).count() * 10));
    };
    const MetricsDateTime before = calendarTicks();
    const MetricsValue now = MetricsValue::FromCurrentTime();
    const MetricsDateTime after = calendarTicks();
    EXPECT_LE(before, now.AsDateTime());
    EXPECT_LE(now.AsDateTime(), after);
    EXPECT_EQ(now.AsUInt64() % 10, 0U);
}

}  // namespace
}  // namespace Metrics
