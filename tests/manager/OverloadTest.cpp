// What is decided for a mark while the worker can't keep up.
#include "metrics/manager/queue/Overload.h"

#include <gtest/gtest.h>

#include <vector>

#include "metrics/manager/queue/BlockEnd.h"
#include "metrics/manager/queue/Pace.h"

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

TEST(BlockEnd, WaitsWhileTheWorkerTakesAndNoLonger) {
    const struct {
        std::uint64_t waiting;
        int takesInFirst;    // slices in which the worker takes something
        std::uint64_t each;  // bytes
        int slept;
        bool admitted;
    } cases[] = {
        {64 * kMiB, 1000, 0, 1, true},
        {96 * kMiB, 1000, 0, 25, true},
        {96 * kMiB, 1000, 8 * kMiB, 4, true},
        {96 * kMiB, 0, 0, 5, true},
        {96 * kMiB, 3, 0, 8, true},
        {200 * kMiB, 1000, 0, 50, false},
        {200 * kMiB, 1000, 2 * kMiB, 42, true},
        {0, 1000, 0, 0, true},
    };
    for (auto [waiting, takesInFirst, each, slept, admitted] : cases) {
        SCOPED_TRACE(waiting);
        int slices = 0;
        std::uint64_t taken = 0;
        const auto look = [&] { return Waiting(waiting); };
        const auto sleep = [&, bytes = &waiting, most = takesInFirst, step = each] {
            if (++slices > most) return;
            ++taken;
            *bytes -= step;
        };
        EXPECT_EQ(PassBlockEnd(
                      kWait, MarkKind::Opening, look, [&] { return taken; }, sleep),
                  admitted);
        EXPECT_EQ(slices, slept);
    }
}

TEST(StaleWatch, TellsOfWhatHasWaitedATenthOfASecond) {
    StaleWatch watch;
    EXPECT_FALSE(watch.IsStale(1000, 10, 10));  // it may be new
    EXPECT_FALSE(watch.IsStale(1099, 20, 20));
    EXPECT_TRUE(watch.IsStale(1100, 20, 11));   // of the ten one is left
    EXPECT_FALSE(watch.IsStale(1200, 30, 10));  // the twenty are taken
    EXPECT_TRUE(watch.IsStale(900, 40, 40));    // the system's clock was set back
}

TEST(Pace, IsThatOfTheLastTellingCycle) {
    Pace pace;
    pace.Note(Pace::kTellingCycle - 1, std::chrono::seconds(1));
    EXPECT_EQ(pace.BytesPerSecond(), 0U);
    pace.Note(kMiB, std::chrono::milliseconds(500));
    EXPECT_EQ(pace.BytesPerSecond(), 2 * kMiB);
    pace.Note(kMiB, std::chrono::seconds(0));
    EXPECT_GT(pace.BytesPerSecond(), 1000 * kMiB);
}

}  // namespace
}  // namespace Metrics::detail
