#include "metrics/MetricsBitsUtils.h"

#include <gtest/gtest.h>

namespace Metrics {
namespace {

using Utils = MetricsBitsUtils;

constexpr unsigned long long kAllFilters = 0xFFFFFFFFF0000FFF;

TEST(MetricsBitsUtils, MapHoldsBothTextsOfEveryBit) {
    using enum MetricsBitFlags;
    const Utils::BitsMap& map = Utils::GetMetricsBitsMap();
    EXPECT_EQ(map.size(), 26U);
    EXPECT_EQ(map.at({"browser", Mnemonic | Component}), 0x80U);
    EXPECT_EQ(map.at({"ElapsedTime", Name | Subscope}), 0x100000U);
    EXPECT_EQ(map.at({"WallTime", Name | Subscope}), 0x800000U);
    EXPECT_EQ(map.at({"all", Mnemonic | Filter}), kAllFilters);
    EXPECT_EQ(Utils::GetMetricsBitMapWithFlag(Mnemonic).size(), 13U);
    const auto components = Utils::GetMetricsBitMapWithFlag(Component);
    EXPECT_EQ(components.size(), 16U);
    EXPECT_EQ(components.at("cde"), components.at("Data Engine"));
}

TEST(MetricsBitsUtils, MnemonicsAreReadAloneAndFromLists) {
    // Only a last odd byte is lower-cased.
    EXPECT_EQ(Utils::GetMetricsBitFromMnemonic("meM"), 0x200000U);
    EXPECT_EQ(Utils::GetMetricsBitFromMnemonic("browseR"), 0x80U);
    for (const char* unknown : {"MEM", "Mem", "coRe", "corE", "Memory", "me", "memo", ""})
        EXPECT_EQ(Utils::GetMetricsBitFromMnemonic(unknown), 0U) << unknown;
    EXPECT_EQ(Utils::GetMetricsBitsFromMnemonicList("mem, time\n#loc\nloc"), 0x700000U);
    EXPECT_EQ(Utils::GetMetricsBitsFromMnemonicList("\tcore ,,\r\n desk,nonsense\v"), 3U);
    EXPECT_EQ(Utils::GetMetricsBitsFromMnemonicList("wall,mem"), 0xA00000U);
    EXPECT_EQ(Utils::GetMetricsBitsFromMnemonicList("#loc,mem"), 0x200000U) << "a comma ends a comment";
    EXPECT_EQ(Utils::GetMetricsBitsFromMnemonicList(""), 0U);
}

TEST(MetricsBitsUtils, BitsHaveNames) {
    EXPECT_EQ(Utils::GetComponentName(2, false), "Corvane Desktop");
    EXPECT_EQ(Utils::GetComponentName(0x80, true), "browser");
    EXPECT_EQ(Utils::GetComponentName(3, false), "Corvane Core");
    EXPECT_EQ(Utils::GetComponentName(0x1002, true), "core");
    EXPECT_EQ(Utils::GetComponentName(0, false), "ElapsedTime");
    EXPECT_EQ(Utils::GetComponentName(0, true), "loc");
    EXPECT_EQ(Utils::GetComponentName(0xFFF, true), "all");
    EXPECT_EQ(Utils::GetMetricsNameListFromBits(0x3, true), "core,desk");
    EXPECT_EQ(Utils::GetMetricsNameListFromBits(0, true), "");
    EXPECT_EQ(Utils::GetMetricsNameListFromBits(kAllFilters, false),
              "Browser App,Corvane Core,Corvane Desktop,Corvane Server,Corvane Tests,Corvane Tools,"
              "Data Engine,Protocol Server");
}

}  // namespace
}  // namespace Metrics
