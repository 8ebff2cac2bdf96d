// Host code that calls the library in its turn.
#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using Reentrance = FreshTest;

constexpr auto kEvents = MetricsEventCategory::Events;

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

}  // namespace
}  // namespace Metrics::Testing
