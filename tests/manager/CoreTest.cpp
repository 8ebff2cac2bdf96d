// What the public interface doesn't reach: tasks, waiting for delivery, hints.
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "metrics/Context.h"
#include "metrics/manager/Core.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using detail::Core;
using CoreTest = FreshTest;
using RunningCoreTest = RunningTest;

std::thread::id RunTask() {
    std::thread::id ranOn;
    EXPECT_TRUE(Core::Current()->ExecuteOnWorker([&] { ranOn = std::this_thread::get_id(); }));
    return ranOn;
}

TEST_F(CoreTest, TasksRunHereWithoutAWorkerAndThereWithOne) {
    EXPECT_EQ(RunTask(), std::this_thread::get_id());
    Manager().Start();
    EXPECT_NE(RunTask(), std::this_thread::get_id());
    std::thread::id ofATask;
    Core::Current()->ExecuteOnWorker([&] { ofATask = RunTask(); });
    EXPECT_EQ(ofATask, RunTask());
    Manager().Shutdown();
    EXPECT_EQ(RunTask(), std::this_thread::get_id());
}

TEST_F(RunningCoreTest, WhatATaskThrowsReachesItsCallerAndEndsTheWorker) {
    LogKeeper log;
    EXPECT_THROW(Core::Current()->ExecuteOnWorker([] { throw std::runtime_error("task"); }),
                 std::runtime_error);
    EXPECT_TRUE(WaitForState(MetricsManager::Collecting));
    EXPECT_EQ(log.Take(), Lines{"MX: MetricsManager: the worker ends: task"});
    Manager().Start();
    EXPECT_THROW(Core::Current()->ExecuteOnWorker({}), std::bad_function_call);
    EXPECT_TRUE(WaitForState(MetricsManager::Collecting));
    Manager().Start();
    EXPECT_NE(RunTask(), std::this_thread::get_id());
}

TEST_F(RunningCoreTest, WaitDeliveredHasSeenEverything) {
    for (int i = 1; i <= 2000; ++i) {
        Context::Create(true);
        Core::Current()->WaitDelivered();
        ASSERT_EQ(Recorder::ToLines(Recorded().TakeAll()), Lines{"1 0>" + std::to_string(i)});
    }
    Manager().Shutdown();
    Core::Current()->WaitDelivered();
}

TEST_F(RunningCoreTest, AnEmptyFileIsExplainedOnce) {
    LogKeeper log;
    Manager().SetState(MetricsManager::Collecting, false);
    Context::Create(true);
    Context::Create(true);
    EXPECT_EQ(
        log.Take(),
        Lines{"MX: Context Create: the manager is not collecting; contexts get no id and emit nothing"});
    Manager().Shutdown();  // takes the recorder's subscription away
    Manager().Start();
    Manager().Shutdown();
    Manager().Start();
    EXPECT_EQ(log.Take(),
              Lines{"MX: MetricsManager Start: outputs or subscriptions made before Shutdown are still "
                    "open; they receive nothing any more"});
}

}  // namespace
}  // namespace Metrics::Testing
