#include "metrics/MetricsValue.h"

#include <gtest/gtest.h>

#include <chrono>
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

TEST(MetricsValue, IsZeroOrEmptyWhereItIsOfAnotherKind) {
    EXPECT_EQ(MetricsValue(-2.5).AsDouble(), -2.5);
    EXPECT_EQ(MetricsValue(-2).AsDouble(), -2);
    EXPECT_EQ(MetricsValue("2").AsDouble(), 0);
    EXPECT_EQ(MetricsValue(2).AsDateTime(), MetricsDateTime());
    for (const MetricsValue& text : {MetricsValue("7"), MetricsValue(L"7"), MetricsValue::Ref("7")})
        EXPECT_TRUE(text.AsInt64() == 0 && !text.AsBool());
    EXPECT_STREQ(MetricsValue(L"7").Text(), "");
    const char* narrow = nullptr;
    const wchar_t* wide = nullptr;
    for (const MetricsValue& null : {MetricsValue(narrow), MetricsValue(wide), MetricsValue::Ref(narrow),
                                     MetricsValue::Ref(wide), MetricsValue(std::string_view())})
        EXPECT_EQ(null.ToString(MetricsValue::AlwaysQuote), "\"\"");
}

TEST(MetricsValue, OwnedTextIsDuplicatedBorrowedTextIsNot) {
    char text[] = "before";
    std::vector<MetricsValue> values = {text, MetricsValue::Ref(text)};
    const MetricsValue owned = values[0], borrowed = values[1];
    values.clear();
    text[0] = 'B';
    EXPECT_STREQ(owned.Text(), "before");
    EXPECT_EQ(borrowed.Text(), text);
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

TEST(MetricsValue, CurrentTimeIsWhatTheSystemsClockSays) {
    const auto clock = [] {
        using namespace std::chrono;
        const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch());
        return MetricsDateTime(2440587).Ticks() + static_cast<std::uint64_t>(now.count()) * 10;
    };
    const std::uint64_t before = clock();
    const std::uint64_t now = MetricsValue::FromCurrentTime().AsDateTime().Ticks();
    EXPECT_LE(before, now);
    EXPECT_LE(now, clock());
    EXPECT_EQ(now % 10, 0U);
}

}  // namespace
}  // namespace Metrics
