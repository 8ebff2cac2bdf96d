// Callbacks that are unsubscribed while they run.
#include "metrics/Context.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using Unsubscribing = RunningTest;

constexpr auto kEvents = MetricsEventCategory::Events;

// By its id, and by its owner when Shutdown has given up the callback.
TEST_F(Unsubscribing, WaitsForTheRunningCallback) {
    for (const bool givenUp : {false, true}) {
        Gate gate;
        std::atomic<int> begun{0};
        std::atomic<int> ended{0};
        auto subscription = std::make_unique<MetricsSubscription>(kEvents, [&](const auto&) {
            ++begun;
            gate.Pass();
            ++ended;
        });
        gate.WaitForSomebody();
        if (givenUp) Manager().Shutdown();
        EXPECT_EQ(ended, 0);
        const std::jthread opener([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            gate.Open();
        });
        if (givenUp) {
            subscription.reset();
        } else {
            Manager().Unsubscribe(subscription->Id());
        }
        const int before = begun;
        EXPECT_EQ(ended, before) << "the callback still runs";
        Manager().Start();
        Recorder recorder;
        Context::Create(true);
        EXPECT_EQ(recorder.TakeLines().size(), 1U);
        EXPECT_EQ(begun, before);
    }
}

TEST_F(Unsubscribing, FromInsideEndsWithThatCall) {
    int calls = 0;
    int neighbourCalls = 0;
    int id = 0;
    Recorded().Take();
    const int neighbour = Manager().Subscribe(kEvents, [&](const auto&) { ++neighbourCalls; });
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
