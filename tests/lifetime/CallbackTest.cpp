// Callbacks that run while they are unsubscribed, or for longer than Shutdown waits.
#include "metrics/Context.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using Unsubscribing = RunningTest;
using SlowCallback = FreshTest;

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

TEST_F(SlowCallback, IsGivenUpAndHarmsNothing) {
    Manager().SetState(MetricsManager::Collecting, true);
    Gate gate;
    std::atomic<int> slowCalls{0};
    std::atomic<int> neighbourCalls{0};
    Manager().Subscribe(kEvents, [&](const auto&) {
        ++slowCalls;
        gate.Pass();
    });
    Manager().Subscribe(kEvents, [&](const auto&) { ++neighbourCalls; });
    Manager().Start();
    gate.WaitForSomebody();

    Manager().Shutdown();  // waits its second, no more: nobody opens the gate
    EXPECT_EQ(Manager().GetState() & MetricsManager::Running, 0U);
    EXPECT_NE(Manager().GetState() & MetricsManager::Stopping, 0U) << "the old worker has not left";
    Manager().Shutdown();
    EXPECT_EQ(Manager().Subscribe(kEvents, [&](const auto&) { ++neighbourCalls; }), 1);

    Manager().Start();
    Recorder recorder;
    EXPECT_EQ(recorder.Subscription().Id(), 1) << "while stopping nothing was subscribed";
    Context::Create(true);
    EXPECT_EQ(recorder.TakeLines(), Lines{"1 0>1"});
    gate.Open();
    for (unsigned id = 2; id < 50; ++id) {
        Context::Create(true);
        EXPECT_EQ(recorder.TakeLines(), Lines{"1 0>" + std::to_string(id)});
    }
    EXPECT_EQ(slowCalls, 1);
    EXPECT_EQ(neighbourCalls, 0) << "the old worker went on after it was given up";
    Manager().Shutdown();
    EXPECT_EQ(Manager().GetState(), MetricsManager::Collecting);
}

TEST_F(SlowCallback, MayShutTheManagerDownAfterItWasGivenUp) {
    for (const bool restarted : {false, true}) {
        Gate gate;
        std::atomic<bool> done{false};
        Manager().Subscribe(kEvents, [&](const auto&) {
            gate.Pass();
            Manager().Shutdown();
            done = true;
        });
        Manager().Start();
        gate.WaitForSomebody();
        Manager().Shutdown();
        if (restarted) Manager().Start();
        gate.Open();
        EXPECT_TRUE(Manager().WaitUntil([&] { return done && Manager().GetState() == 0; }, 20000));
        Manager().Start();
        EXPECT_EQ(Manager().GetState(), MetricsManager::Running);
        Manager().Shutdown();
    }
}

TEST_F(SlowCallback, TasksOfOthersStillRun) {
    Gate gate;
    Manager().Subscribe(kEvents, [&](const auto&) { gate.Pass(); });
    Manager().Start();
    gate.WaitForSomebody();
    {
        // Handed to the worker that is stuck, and run by their owners once it is given up.
        std::vector<std::jthread> owners;
        for (int i = 0; i < 4; ++i) owners.emplace_back([this] { Manager().Unsubscribe(99); });
        Manager().Shutdown();
    }
    gate.Open();
    EXPECT_TRUE(Manager().WaitUntil([&] { return Manager().GetState() == 0; }, 20000));
}

}  // namespace
}  // namespace Metrics::Testing
