// Unsubscribing while the callback runs, and from inside it.
#include <chrono>
#include <thread>

#include "metrics/Context.h"
#include "tests/lifetime/Gate.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using Unsubscribing = RunningTest;

constexpr auto kEvents = MetricsEventCategory::Events;

TEST_F(Unsubscribing, FromAnotherThreadWaitsForTheRunningCallback) {
    Gate gate;
    std::atomic<int> calls{0};
    std::atomic<bool> returned{false};
    const int id = Manager().Subscribe(kEvents, [&](const auto&) {
        ++calls;
        gate.Pass();
    });
    gate.WaitForSomebody();
    std::thread other([&] {
        Manager().Unsubscribe(id);
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(returned);
    gate.Open();
    other.join();
    const int before = calls;
    Context::Create(true);
    EXPECT_EQ(TakeLines(), Lines{"1 0>1"});
    EXPECT_EQ(calls, before);
}

TEST_F(Unsubscribing, ByItsOwnerAfterShutdownGaveUpStillWaits) {
    Gate gate;
    std::atomic<bool> running{false};
    auto subscription = std::make_unique<MetricsSubscription>(kEvents, [&](const auto&) {
        running = true;
        gate.Pass();
        running = false;
    });
    gate.WaitForSomebody();
    Manager().Shutdown();
    EXPECT_TRUE(running);
    std::thread opener([&] { gate.Open(); });
    subscription.reset();
    EXPECT_FALSE(running) << "the owner of the callback was destroyed under it";
    opener.join();
    Manager().Start();
}

TEST_F(Unsubscribing, FromInsideEndsWithThatCall) {
    int calls = 0;
    int neighbourCalls = 0;
    int id = 0;
    int neighbour = 0;
    Recorded().Take();
    neighbour = Manager().Subscribe(kEvents, [&](const auto&) { ++neighbourCalls; });
    std::atomic<bool> ready{false};
    id = Manager().Subscribe(kEvents, [&](const auto&) {
        while (!ready) std::this_thread::yield();
        ++calls;
        Manager().Unsubscribe(id);
        Manager().Unsubscribe(neighbour);
    });
    ready = true;
    Recorded().Take();
    Recorded().Take();
    EXPECT_EQ(calls, 1);
    const int before = neighbourCalls;
    Context::Create(true);
    EXPECT_EQ(TakeLines(), Lines{"1 0>1"});
    EXPECT_EQ(neighbourCalls, before);
    EXPECT_EQ(Manager().Subscribe(kEvents, [](const auto&) {}), neighbour);
}

}  // namespace
}  // namespace Metrics::Testing
