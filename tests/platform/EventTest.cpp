// The system's event, by way of the public signal that is made of it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "metrics/MetricsSignal.h"

namespace Metrics {

TEST(EventTest, AutoResetIsClearAfterOneWaitAndManualResetStaysSet) {
    for (const bool autoReset : {true, false}) {
        MetricsSignal event = autoReset ? MetricsSignal() : MetricsSignal(false);
        const auto before = std::chrono::steady_clock::now();
        EXPECT_FALSE(event.wait(50));
        const auto waited = std::chrono::steady_clock::now() - before;
        EXPECT_GE(waited, std::chrono::milliseconds(45));
        EXPECT_LT(waited, std::chrono::seconds(10));
        event.set();
        event.set();
        EXPECT_TRUE(event.wait(0));
        EXPECT_EQ(event.wait(0), !autoReset);
        event.set();
        event.reset();
        EXPECT_FALSE(event.wait(0));
    }
}

TEST(EventTest, ASetReleasesOneWaiterOrAllOfThemEvenIfClearedAtOnce) {
    constexpr int kWaiters = 3;
    // Some rounds: now and then all of them are quicker than the reset.
    for (const bool autoReset : {true, false, false, false, false}) {
        MetricsSignal event(autoReset);
        std::atomic<int> started = 0;
        std::vector<std::jthread> waiters;
        for (int i = 0; i < kWaiters; ++i) {
            waiters.emplace_back([&event, &started, limit = i == 0 ? -1 : 20'000] {
                ++started;
                EXPECT_TRUE(event.wait(limit));
            });
        }
        while (started < kWaiters) std::this_thread::yield();
        // There is no way to see that a thread waits; this makes it nearly certain.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        for (int i = 0; i < (autoReset ? kWaiters + 1 : 1); ++i) event.set();
        if (!autoReset) event.reset();
        waiters.clear();
        EXPECT_EQ(event.wait(0), autoReset) << "one set is left, or none";
    }
}

}  // namespace Metrics
