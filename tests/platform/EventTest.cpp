#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

TEST(EventTest, AutoResetIsClearAfterOneWaitAndManualResetStaysSet) {
    for (const bool autoReset : {true, false}) {
        Event event(autoReset);
        const auto before = std::chrono::steady_clock::now();
        EXPECT_FALSE(event.Wait(50));
        const auto waited = std::chrono::steady_clock::now() - before;
        EXPECT_GE(waited, std::chrono::milliseconds(45));
        EXPECT_LT(waited, std::chrono::seconds(10));
        event.Set();
        event.Set();
        EXPECT_TRUE(event.Wait(0));
        EXPECT_EQ(event.Wait(0), !autoReset);
        event.Set();
        event.Reset();
        EXPECT_FALSE(event.Wait(0));
    }
}

TEST(EventTest, ASetReleasesOneWaiterOrAllOfThemEvenIfClearedAtOnce) {
    constexpr int kWaiters = 3;
    for (const bool autoReset : {true, false}) {
        Event event(autoReset);
        std::atomic<int> started = 0;
        std::vector<std::thread> waiters;
        for (int i = 0; i < kWaiters; ++i) {
            waiters.emplace_back([&event, &started, limit = i == 0 ? -1 : 20'000] {
                ++started;
                EXPECT_TRUE(event.Wait(limit));
            });
        }
        while (started < kWaiters) std::this_thread::yield();
        // There is no way to see that a thread waits; this makes it nearly certain.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        for (int i = 0; i < (autoReset ? kWaiters : 1); ++i) event.Set();
        if (!autoReset) event.Reset();
        for (std::thread& waiter : waiters) waiter.join();
        EXPECT_FALSE(event.Wait(0));
    }
}

// Two threads wake each other in turns: a lost wake-up ends in the time-out.
TEST(EventTest, NoSetIsLost) {
    Event ping(true);
    Event pong(true);
    const auto play = [](Event& own, Event& others) {
        for (int turn = 0; turn < 2'000; ++turn) {
            ASSERT_TRUE(own.Wait(20'000));
            others.Set();
        }
    };
    ping.Set();
    std::thread other([&] { play(ping, pong); });
    play(pong, ping);
    other.join();
}

}  // namespace Metrics::platform
