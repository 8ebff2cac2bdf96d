// A callback that takes longer than Shutdown waits.
#include <algorithm>
#include <array>
#include <vector>

#include "metrics/Context.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using SlowCallback = FreshTest;

constexpr auto kEvents = MetricsEventCategory::Events;

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

TEST_F(SlowCallback, LeavesWhatItHadNotTakenToTheNextWorker) {
    Manager().SetState(MetricsManager::Collecting, true);
    std::array<Gate, 2> gates;
    std::vector<MetricsEvent> got;
    Manager().Subscribe(kEvents, [&, calls = 0U](const auto& batch) mutable {
        got.insert(got.end(), batch.begin(), batch.end());
        gates[std::min(calls++, 1U)].Pass();
    });
    Manager().Start();
    gates[0].WaitForSomebody();
    for (int i = 0; i < 5000; ++i) Context::Create(true);
    gates[0].Open();
    gates[1].WaitForSomebody();  // in the first of several batches
    Manager().Shutdown();
    gates[1].Open();
    EXPECT_TRUE(WaitForState(MetricsManager::Collecting));
    Recorder recorder;
    Manager().Start();
    const std::vector<MetricsEvent> rest = recorder.Take();
    EXPECT_FALSE(rest.empty());
    EXPECT_LT(rest.size(), 5000U);
    got.insert(got.end(), rest.begin(), rest.end());
    std::erase_if(got, [](const auto& event) { return event.Type() != MetricsEventType::ContextCreate; });
    ASSERT_EQ(got.size(), 5000U);
    for (std::uint64_t i = 0; i < got.size(); ++i) ASSERT_EQ(got[i].param2.AsUInt64(), i + 1);
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
    EXPECT_TRUE(WaitForState(0));
}

}  // namespace
}  // namespace Metrics::Testing
