// What is decided for a mark while the worker can't keep up.
#include "metrics/manager/queue/Overload.h"

#include <gtest/gtest.h>

#include <vector>

namespace Metrics::detail {
namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;
constexpr OverloadLimit kWait{OverloadPolicy::Wait, 64 * kMiB};
constexpr OverloadLimit kDrop{OverloadPolicy::Drop, 64 * kMiB};
constexpr OverloadLimit kGrow{OverloadPolicy::Grow, 64 * kMiB};

Pressure Waiting(std::uint64_t bytes, std::uint64_t pace = 0) {
    return {.waitingBytes = bytes, .ownBytes = kTwoBlocks, .paceBytes = pace, .takes = true};
}

TEST(Overload, SlowsTheMoreTheMoreWaits) {
    const struct {
        std::uint64_t waiting;
        std::uint64_t pace;  // a second
        int slices;
    } cases[] = {
        {64 * kMiB - 1, 0, 0},     {64 * kMiB, 0, 1},           {96 * kMiB, 0, 25},
        {128 * kMiB, 0, 50},       {1000 * kMiB, 0, 50},        {20 * kMiB - 1, 40 * kMiB, 0},
        {20 * kMiB, 40 * kMiB, 1}, {74 * kMiB, 40 * kMiB, 25},  {8 * kMiB - 1, 1, 0},
        {8 * kMiB, 1, 1},          {63 * kMiB, 1000 * kMiB, 0},
    };
    for (const auto& [waiting, pace, slices] : cases)
        EXPECT_EQ(SlicesToWait(kWait, Waiting(waiting, pace), MarkKind::Opening), slices)
            << waiting << " at " << pace;
    // A limit below the lowest start is a limit all the same, and none is none.
    EXPECT_EQ(SlowedFrom({OverloadPolicy::Wait, kMiB}, 1), kMiB);
    EXPECT_EQ(SlicesToWait({OverloadPolicy::Wait, UINT64_MAX}, Waiting(1000 * kMiB), MarkKind::Opening), 0);
    EXPECT_EQ(SlicesToWait({OverloadPolicy::Wait, 0}, Waiting(1), MarkKind::Opening), 50);
}

TEST(Overload, SlowsNobodyWhomItMustNot) {
    const Pressure most = Waiting(1000 * kMiB);
    std::vector<Pressure> spared(4, most);
    spared[0].takes = false;
    spared[1].onWorkerThread = true;
    spared[2].ownBytes = kTwoBlocks - 1;
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(SlicesToWait(kWait, spared[i], MarkKind::Closing), 0) << i;
    EXPECT_EQ(SlicesToWait(kWait, most, MarkKind::Closing), 50);
    EXPECT_EQ(SlicesToWait(kWait, most, MarkKind::OfLibrary), 0);
    EXPECT_EQ(SlicesToWait(kDrop, most, MarkKind::Opening), 0);
    EXPECT_EQ(SlicesToWait(kGrow, most, MarkKind::Opening), 0);
}

TEST(Overload, DropsOpeningsAtTwiceTheLimitAndClosingsAtThreeTimes) {
    for (const OverloadLimit& limit : {kWait, kDrop}) {
        for (const std::uint64_t pace : {std::uint64_t{0}, std::uint64_t{1}, 1000 * kMiB}) {
            EXPECT_TRUE(IsAdmitted(limit, Waiting(128 * kMiB - 1, pace), MarkKind::Opening));
            EXPECT_FALSE(IsAdmitted(limit, Waiting(128 * kMiB, pace), MarkKind::Opening));
            EXPECT_TRUE(IsAdmitted(limit, Waiting(192 * kMiB - 1, pace), MarkKind::Closing));
            EXPECT_FALSE(IsAdmitted(limit, Waiting(192 * kMiB, pace), MarkKind::Closing));
            EXPECT_TRUE(IsAdmitted(limit, Waiting(128 * kMiB, pace), MarkKind::OfLibrary));
        }
    }
    EXPECT_TRUE(IsAdmitted(kGrow, Waiting(UINT64_MAX - 1), MarkKind::Opening));
    Pressure bystander = Waiting(1000 * kMiB);
    bystander.ownBytes = kTwoBlocks - 1;
    EXPECT_TRUE(IsAdmitted(kDrop, bystander, MarkKind::Opening));
    EXPECT_TRUE(
        IsAdmitted({OverloadPolicy::Drop, UINT64_MAX / 2 + 1}, Waiting(1000 * kMiB), MarkKind::Closing));
}

TEST(Overload, WakesTheWorkerAtEachEighthOfTheLimit) {
    constexpr std::uint64_t kBlock = 32 << 10;
    int wakes = 0;
    for (std::uint64_t waiting = kBlock; waiting <= 64 * kMiB; waiting += kBlock)
        wakes += WakesWorker(kWait, waiting, kBlock) ? 1 : 0;
    EXPECT_EQ(wakes, 8);
    EXPECT_TRUE(WakesWorker(kWait, 8 * kMiB, kBlock));
    EXPECT_TRUE(WakesWorker({OverloadPolicy::Wait, 0}, kBlock, kBlock));
}

}  // namespace
}  // namespace Metrics::detail
