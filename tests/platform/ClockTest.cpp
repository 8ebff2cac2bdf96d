#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

TEST(ClockTest, SystemTimeIsTheUnixTimeInMilliseconds) {
    using std::chrono::system_clock;
    const auto now =
        std::chrono::duration_cast<std::chrono::milliseconds>(system_clock::now().time_since_epoch());
    EXPECT_NEAR(static_cast<double>(SystemTimeMilliseconds()), static_cast<double>(now.count()), 1000);
}

TEST(ClockTest, PerformanceCounterMeasuresASleep) {
    const std::int64_t before = PerformanceCounter();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const double seconds =
        static_cast<double>(PerformanceCounter() - before) / static_cast<double>(PerformanceFrequency());
    EXPECT_GE(seconds, 0.045);
    EXPECT_LT(seconds, 10);
}

// Keeps the processor busy until the thread has used `seconds` more of it, at most ten seconds by the clock.
void Compute(double seconds) {
    const double until = ThreadProcessorTime().total + seconds;
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ThreadProcessorTime().total < until && std::chrono::steady_clock::now() < giveUp) {
    }
}

TEST(ClockTest, ProcessorTimeCountsWorkOfThisThreadOnly) {
    const ProcessorTime before = ThreadProcessorTime();
    std::thread other(Compute, 0.1);
    other.join();
    const ProcessorTime afterOther = ThreadProcessorTime();
    Compute(0.1);
    const ProcessorTime afterOwn = ThreadProcessorTime();

    EXPECT_LT(afterOther.total - before.total, 0.09);
    EXPECT_GE(afterOwn.total - afterOther.total, 0.1);
    EXPECT_LE(afterOwn.user, afterOwn.total);
}

}  // namespace Metrics::platform
