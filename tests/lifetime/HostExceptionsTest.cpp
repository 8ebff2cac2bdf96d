// Host code that throws: thread-init function, callback, log delegate. (Tasks: see the manager's own tests.)
#include <stdexcept>

#include "metrics/Context.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using HostExceptions = FreshTest;

bool WaitForState(std::uint32_t state) {
    auto& manager = MetricsManager::GetInstance();
    return manager.WaitUntil([&] { return manager.GetState() == state; }, 20000);
}

TEST_F(HostExceptions, AThreadInitThatThrowsFailsTheStart) {
    Manager().SetThreadInitFunction([] { throw std::runtime_error("no such device"); });
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

TEST_F(HostExceptions, ACallbackMayThrowAnything) {
    LogKeeper log;
    Manager().Subscribe(MetricsEventCategory::Events, [](const auto&) { throw 42; });
    Manager().Start();
    EXPECT_TRUE(WaitForState(0));
    EXPECT_EQ(log.Take(), Lines{"MX: MetricsManager: the worker ends: unknown exception"});
    Manager().Shutdown();
    EXPECT_EQ(Manager().GetState(), 0U);
    Manager().Start();
    EXPECT_EQ(Manager().GetState(), MetricsManager::Running);
}

TEST_F(HostExceptions, ShutdownMeetsAWorkerThatDies) {
    for (int i = 0; i < 300; ++i) {
        Manager().Start();
        Manager().Subscribe(MetricsEventCategory::Events,
                            [](const auto&) { throw std::runtime_error("dies"); });
        Manager().Shutdown();
        ASSERT_EQ(Manager().GetState(), 0U) << "round " << i;
    }
}

TEST_F(HostExceptions, WhatALogDelegateThrowsIsSwallowed) {
    int calls = 0;
    Manager().SetLogDelegate([&](const std::string&) {
        ++calls;
        throw std::runtime_error("disk full");
    });
    Manager().Log("anything");
    Context::Create(true);  // logs that nothing is collected
    Manager().Subscribe(MetricsEventCategory::Events, [](const auto&) { throw std::runtime_error("dies"); });
    Manager().Start();
    EXPECT_TRUE(WaitForState(0));
    EXPECT_EQ(calls, 3);
}

}  // namespace
}  // namespace Metrics::Testing
