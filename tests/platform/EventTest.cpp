#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

constexpr int kLong = 20'000;

// Threads that wait for one event, and how many of them it has released.
class Waiters {
  public:
    Waiters(Event& event, int count) {
        for (int i = 0; i < count; ++i) {
            threads_.emplace_back([this, &event] {
                ++started_;
                if (event.Wait(kLong)) ++released_;
            });
        }
        while (started_ < count) std::this_thread::yield();
        // There is no way to see that a thread waits; this makes it nearly certain.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    int ReleasedAtTheEnd() {
        for (std::thread& thread : threads_) thread.join();
        return released_;
    }

  private:
    std::vector<std::thread> threads_;
    std::atomic<int> started_ = 0;
    std::atomic<int> released_ = 0;
};

}  // namespace

TEST(EventTest, AutoResetIsClearAfterOneWaitAndManualResetStaysSet) {
    for (const bool autoReset : {true, false}) {
        Event event(autoReset);
        EXPECT_FALSE(event.Wait(0));
        event.Set();
        event.Set();
        EXPECT_TRUE(event.Wait(0));
        EXPECT_EQ(event.Wait(0), !autoReset);
        event.Set();
        event.Reset();
        EXPECT_FALSE(event.Wait(0));
    }
}

TEST(EventTest, WaitEndsAfterItsTime) {
    Event event(true);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(event.Wait(50));
    const auto waited = std::chrono::steady_clock::now() - before;
    EXPECT_GE(waited, std::chrono::milliseconds(45));
    EXPECT_LT(waited, std::chrono::seconds(10));
}

TEST(EventTest, WaitForEverEndsWithASet) {
    Event event(true);
    std::thread waiter([&event] { EXPECT_TRUE(event.Wait(-1)); });
    event.Set();
    waiter.join();
}

TEST(EventTest, EachSetOfAnAutoResetEventReleasesOneWaiter) {
    Event event(true);
    Waiters waiters(event, 3);
    for (int i = 0; i < 3; ++i) event.Set();
    EXPECT_EQ(waiters.ReleasedAtTheEnd(), 3);
    EXPECT_FALSE(event.Wait(0));
}

TEST(EventTest, AManualResetEventReleasesAllWaitersEvenIfClearedAtOnce) {
    Event event(false);
    Waiters waiters(event, 3);
    event.Set();
    event.Reset();
    EXPECT_EQ(waiters.ReleasedAtTheEnd(), 3);
    EXPECT_FALSE(event.Wait(0));
}

// Two threads wake each other in turns: a lost wake-up ends in the time-out.
TEST(EventTest, NoSetIsLost) {
    constexpr int kTurns = 2'000;
    Event ping(true);
    Event pong(true);
    std::thread other([&] {
        for (int i = 0; i < kTurns; ++i) {
            ASSERT_TRUE(ping.Wait(kLong));
            pong.Set();
        }
    });
    for (int i = 0; i < kTurns; ++i) {
        ping.Set();
        ASSERT_TRUE(pong.Wait(kLong));
    }
    other.join();
}

}  // namespace Metrics::platform
