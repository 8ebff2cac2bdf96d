#include "metrics/MetricsTimer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/lifetime/Threads.h"

namespace Metrics {
namespace {

void Wait(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

TEST(MetricsTimer, AddsUpOnlyTheTimeItRuns) {
    MetricsTimer timer(false), whole(true), running(true);
    Wait(20);
    EXPECT_EQ(timer.ElapsedSec(), 0);
    running.Reset();
    timer.Start();
    Wait(20);
    timer.Stop();
    const double elapsed = timer.ElapsedSec();
    EXPECT_GE(elapsed, 0.019);
    EXPECT_GE(running.ElapsedSec(), elapsed);
    Wait(20);
    EXPECT_EQ(timer.ElapsedSec(), elapsed);
    EXPECT_EQ(timer.ElapsedMsec(), elapsed * 1000.0);
    EXPECT_GT(running.ElapsedSec(), elapsed + 0.019);
    EXPECT_LT(running.ElapsedSec() + 0.019, whole.ElapsedSec());
    timer.Reset();
    EXPECT_EQ(timer.ElapsedSec(), 0);
}

TEST(MetricsTimer, FirstReadingMayBeRacedFor) {
    Testing::AtOnce(4, [](int) { EXPECT_LT(MetricsTimer::GetApplicationElapsedSecs(), 10); });
    EXPECT_LT(MetricsTimer::GetApplicationElapsedSecs(), 10);
}

}  // namespace
}  // namespace Metrics
