#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

// Keeps the processor busy until the thread has used `seconds` more of it, at most ten seconds by the clock.
void Compute(double seconds) {
    const double until = ThreadProcessorTime().total + seconds;
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ThreadProcessorTime().total < until && std::chrono::steady_clock::now() < giveUp) {
    }
}

TEST(ClockTest, ProcessorTimeCountsWorkOfThisThreadOnly) {
    const ProcessorTime before = ThreadProcessorTime();
    std::thread(Compute, 0.1).join();
    const ProcessorTime afterOther = ThreadProcessorTime();
    Compute(0.1);
    const ProcessorTime afterOwn = ThreadProcessorTime();

    EXPECT_LT(afterOther.total - before.total, 0.09);
    EXPECT_GE(afterOwn.total - afterOther.total, 0.1);
    EXPECT_LE(afterOwn.user, afterOwn.total);
}

}  // namespace Metrics::platform
