#include "metrics/MetricsTimer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "metrics/MetricsTimeStack.h"
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

TEST(MetricsTimeStack, ExclusiveIsLessDirectMeasuredChildren) {
    MetricsTimeStack stack;
    const auto open = [&](double processor, double user) {
        stack.Push();
        stack.Start({processor, user});
    };
    const auto close = [&](double processor, double user) {
        stack.Update({processor, user});
        stack.Pop();
    };
    close(1, 1);  // of an empty stack nothing is popped
    EXPECT_EQ(stack.Top().processor, 0);
    EXPECT_EQ(stack.TopExclusive().user, 0);
    open(10, 4);
    open(11, 5);
    close(13, 6);  // a child: 2 and 1
    stack.Push();
    open(13, 6);
    close(14, 6);  // a grandchild under an unmeasured child
    close(15, 7);
    stack.Update({20, 9});
    EXPECT_EQ(stack.Top().processor, 10);
    EXPECT_EQ(stack.Top().user, 5);
    EXPECT_EQ(stack.TopExclusive().processor, 8);
    EXPECT_EQ(stack.TopExclusive().user, 4);
}

}  // namespace
}  // namespace Metrics
