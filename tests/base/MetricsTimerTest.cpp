#include "metrics/MetricsTimer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace Metrics {
namespace {

void Wait(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

TEST(MetricsTimer, AddsUpOnlyTheTimeItRuns) {
    MetricsTimer timer(false);
    Wait(30);
    EXPECT_EQ(timer.ElapsedSec(), 0);
    timer.Start();
    Wait(20);
    timer.Stop();
    const double first = timer.ElapsedSec();
    EXPECT_GE(first, 0.019);
    Wait(30);
    EXPECT_EQ(timer.ElapsedSec(), first);
    EXPECT_EQ(timer.ElapsedMsec(), first * 1000.0);
    timer.Reset();
    EXPECT_EQ(timer.ElapsedSec(), 0);

    MetricsTimer whole(true), running(true);
    Wait(20);
    running.Reset();
    Wait(5);
    const double elapsed = running.ElapsedSec();
    EXPECT_GE(elapsed, 0.004);
    EXPECT_LT(elapsed + 0.019, whole.ElapsedSec());
    EXPECT_GT(running.ElapsedSec(), elapsed);
}

TEST(MetricsTimer, FirstReadingMayBeRacedFor) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] { EXPECT_LT(MetricsTimer::GetApplicationElapsedSecs(), 10); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_LT(MetricsTimer::GetApplicationElapsedSecs(), 10);
}

}  // namespace
}  // namespace Metrics
