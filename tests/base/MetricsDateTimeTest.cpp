#include "metrics/MetricsDateTime.h"

#include <gtest/gtest.h>

#include <limits>

namespace Metrics {
namespace {

constexpr std::uint64_t kNoTime = UINT64_MAX;

TEST(MetricsDateTime, SplitsIntoDateSecondsAndSubseconds) {
    const MetricsDateTime time(MetricsDate(2456390), 3600 * 10000 + 42);
    EXPECT_EQ(time.GetDate(), 2456390);
    EXPECT_EQ(time.GetSeconds(), 3600U);
    EXPECT_EQ(time.GetSubseconds(), 42U);
    EXPECT_EQ(MetricsDateTime().GetDate(), std::numeric_limits<std::int32_t>::min());
}

TEST(MetricsDateTime, SignedIntegersAreDaysUnsignedOnesTicks) {
    EXPECT_EQ(MetricsDateTime(3), MetricsDateTime(3 * MetricsDateTime::scaling));
    EXPECT_EQ(MetricsDateTime(3L), MetricsDateTime(static_cast<short>(3)));
    EXPECT_EQ(MetricsDateTime(3U).Ticks(), 3U);
    EXPECT_EQ(MetricsDateTime(-1).Ticks(), 0 - MetricsDateTime::scaling);
    EXPECT_LT(MetricsDateTime(1), MetricsDateTime(2));
}

TEST(MetricsDateTime, FractionsOfDaysOverTheWholeRange) {
    EXPECT_EQ(MetricsDateTime(1.5).Ticks(), 1296000000U);
    EXPECT_EQ(MetricsDateTime(-1.0), MetricsDateTime(-1));
    const double high = 1.5 * 9223372036854775808.0;  // ticks that only an unsigned number holds
    EXPECT_EQ(MetricsDateTime(high / 864000000.0).Ticks(), 13835058055282163712U);
    for (double days : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(MetricsDateTime(days).Ticks(), kNoTime);
}

}  // namespace
}  // namespace Metrics
