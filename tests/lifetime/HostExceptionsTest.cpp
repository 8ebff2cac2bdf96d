// What host code throws: thread-init function, callback, log delegate. What callbacks throw in a running
// worker, and tasks: see the manager's own tests.
#include <stdexcept>

#include "metrics/Context.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using HostExceptions = FreshTest;

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

}  // namespace
}  // namespace Metrics::Testing
