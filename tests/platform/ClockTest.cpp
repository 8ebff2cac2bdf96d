#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "metrics/platform/Platform.h"
#include "tests/lifetime/Threads.h"

namespace Metrics::platform {

TEST(ClockTest, TheCoarseTimeIsNeverAheadAndBehindByATickAtMost) {
    for (int i = 0; i < 100'000; ++i) {
        const std::int64_t coarse = CoarseSystemTimeMilliseconds();
        const std::int64_t now = SystemTimeMilliseconds();
        const std::int64_t coarseAfter = CoarseSystemTimeMilliseconds();
        ASSERT_LE(coarse, now);
        ASSERT_GE(coarseAfter, now - 20);
    }
    const auto seconds = std::chrono::system_clock::now().time_since_epoch() / std::chrono::seconds(1);
    EXPECT_NEAR(double(CoarseSystemTimeMilliseconds()) / 1e3, double(seconds), 2);
    EXPECT_NEAR(double(SystemTimeMicroseconds()) / 1e6, double(seconds), 2);
}

// Threads may be interrupted anywhere, so each reading has the system's own before and after it.
TEST(ClockTest, ThePerformanceCounterKeepsToTheSystemsClockOnAllThreads) {
    const auto steadyNanoseconds = [] {
        return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    };
    const double toNanoseconds = 1e9 / double(PerformanceFrequency());
    // Both count from the machine's start.
    const auto told = [&] { return double(PerformanceCounter()) * toNanoseconds; };
    Testing::AtOnce(3, [&](int) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        double last = 0;
        for (int i = 1; std::chrono::steady_clock::now() < end; ++i) {
            const auto before = double(steadyNanoseconds());
            const double now = told();
            const auto after = double(steadyNanoseconds());
            ASSERT_GE(now, last);
            ASSERT_GE(now, before - 5'000);
            ASSERT_LE(now, after + 5'000);
            last = now;
            if (i % 100'000 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(120));
        }
    });
}

}  // namespace Metrics::platform
