// Host code that the library calls (callbacks, thread-init function, log delegate): it throws, or calls the
// library in its turn, or takes long, or is unsubscribed while it runs. What callbacks throw, and tasks: see
// the manager's own tests.
#include <stdexcept>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

class HostCode : public FreshTest {
  protected:
    bool WaitForState(std::uint32_t state) {
        return Manager().WaitUntil([&] { return Manager().GetState() == state; }, 20000);
    }
};
using HostExceptions = HostCode;
using Reentrance = HostCode;
using SlowCallback = HostCode;
using Unsubscribing = RunningTest;

constexpr auto kEvents = MetricsEventCategory::Events;

void Throw() {
    throw std::runtime_error("no such device");
}

TEST_F(HostExceptions, AThreadInitThatThrowsFailsTheStart) {
    Manager().SetThreadInitFunction(Throw);
    for (int i = 0; i < 2; ++i) {
        try {
            Manager().Start();
            ADD_FAILURE() << "started";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "no such device");
        }
        EXPECT_EQ(Manager().GetState(), 0U);
        Manager().Shutdown();
    }
    Manager().SetThreadInitFunction(nullptr);
    Manager().Start();
    EXPECT_EQ(Manager().GetState(), MetricsManager::Running);
}

TEST_F(HostExceptions, ShutdownMeetsAWorkerThatDies) {
    for (int i = 0; i < 300; ++i) {
        Manager().Start();
        Manager().Subscribe(kEvents, [](const auto&) { Throw(); });
        Manager().Shutdown();
        ASSERT_EQ(Manager().GetState(), 0U) << "round " << i;
    }
}

TEST_F(HostExceptions, WhatALogDelegateThrowsIsSwallowed) {
    int calls = 0;
    Manager().SetLogDelegate([&](const std::string&) {
        ++calls;
        Throw();
    });
    Manager().Log("anything");
    Context::Create(true);  // logs that nothing is collected
    Manager().Subscribe(kEvents, [](const auto&) { Throw(); });
    Manager().Start();
    EXPECT_TRUE(WaitForState(0));
    EXPECT_EQ(calls, 3);
}

void CallEverything() {
    auto& manager = MetricsManager::GetInstance();
    manager.Start();
    manager.SetState(MetricsManager::Collecting, true);
    manager.SetBits(0x1000, true);
    manager.SetComponentId(2);
    manager.Log("from inside");
    EXPECT_FALSE(manager.WaitUntil([] { return false; }, 1));
    manager.Unsubscribe(manager.Subscribe(kEvents, [](const auto&) {}));
    manager.Unsubscribe(99);
    const MetricsSubscription subscription(kEvents, [](const auto&) {});
    const Session session;  // its end shuts the manager down
    Context context = Context::Root("inside");
    METRICS_SCOPE("inside");
    manager.GetStatistics();
    manager.SetThreadInitFunction(nullptr);
}

TEST_F(Reentrance, AThreadInitFunctionAndACallbackMayCallEverything) {
    Manager().SetThreadInitFunction(CallEverything);
    Manager().Start();
    EXPECT_TRUE(WaitForState(0)) << "the shutdown it asked for";
    std::atomic<bool> done{false};
    Manager().Subscribe(kEvents, [&](const auto&) {
        CallEverything();
        done = true;
    });
    Manager().Start();
    EXPECT_TRUE(WaitForState(0));
    EXPECT_TRUE(done);
}

TEST_F(Reentrance, ALogDelegateMayCallEverything) {
    std::atomic<int> depth{0};
    Manager().SetLogDelegate([&](const std::string&) {
        if (depth++ == 0) CallEverything();
    });
    {
        Session session;
        Recorder recorder;
        Manager().Shutdown();
        Manager().Start();  // logs that the recorder lost its registration
        EXPECT_GT(depth, 1);
        depth = 0;
        Manager().Subscribe(kEvents, [](const auto&) { throw 1; });
        Manager().Start();
        EXPECT_TRUE(Manager().WaitUntil([&] { return depth > 0; }, 20000)) << "a worker that ends logs that";
        EXPECT_TRUE(WaitForState(0));
    }
    Manager().SetLogDelegate(nullptr);
}

// What a callback owns may end with it, wherever that is.
TEST_F(Reentrance, WhatACallbackOwnsMayShutDown) {
    for (const bool unsubscribed : {false, true}) {
        std::shared_ptr<void> owned(nullptr, [this](void*) { Manager().Shutdown(); });
        const int id = Manager().Subscribe(kEvents, [last = std::move(owned)](const auto&) {});
        Manager().Start();
        if (unsubscribed) Manager().Unsubscribe(id);
        Manager().Shutdown();
        EXPECT_EQ(Manager().GetState(), 0U);
    }
}

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
    EXPECT_TRUE(WaitForState(0));
}

}  // namespace
}  // namespace Metrics::Testing
