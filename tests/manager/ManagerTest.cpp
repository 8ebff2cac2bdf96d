// States, bits, ids, log and the inert parts of the manager.
#include <gtest/gtest.h>

#include <thread>

#include "metrics/Context.h"
#include "metrics/MetricsSignal.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using ManagerTest = FreshTest;
using RunningManagerTest = RunningTest;

TEST_F(ManagerTest, SetStateSwitchesCollectingOnlyAndIdsCountMeanwhile) {
    LogKeeper log;
    Manager().SetState(MetricsManager::Running, true);
    EXPECT_EQ(Manager().GetState(), 0U);
    EXPECT_EQ(
        log.Take(),
        Lines{"MX: MetricsManager SetState: only Collecting can be switched; the other bits are ignored"});
    EXPECT_EQ(Manager().GetNextContextId(5), 0U);
    Manager().SetState(MetricsManager::Collecting, true);
    EXPECT_EQ(Manager().GetState(), MetricsManager::Collecting);
    EXPECT_EQ(Manager().GetNextContextId(5), 1U);
    EXPECT_EQ(Manager().GetNextContextId(0), 2U);
    Manager().SetState(MetricsManager::Collecting, false);
    EXPECT_EQ(Manager().GetState(), 0U);
    EXPECT_EQ(Manager().GetNextContextId(), 0U);
    EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(ManagerTest, WaitUntilPollsAndGivesUp) {
    int calls = 0;
    EXPECT_FALSE(Manager().WaitUntil([&] { return ++calls < 0; }, 0));
    EXPECT_GE(calls, 1);
    EXPECT_TRUE(Manager().WaitUntil([&] { return ++calls > 3; }, -1));
    EXPECT_THROW(Manager().WaitUntil({}, 0), std::bad_function_call);
}

TEST_F(ManagerTest, ConnectionIsInert) {
    Manager().Connect();
    Manager().Disconnect();
    EXPECT_FALSE(Manager().IsConnected());
    const auto name = [](int status, bool lowerFirst) {
        return MetricsManager::GetConnectionStatusString(static_cast<MetricsConnectionStatus>(status),
                                                         lowerFirst);
    };
    int status = 0;
    for (const char* expected :
         {"Unknown", "Disconnected", "Connecting", "Connected", "Reconnecting", "Lost connection", "Unknown"})
        EXPECT_EQ(name(status++, false), expected);
    EXPECT_EQ(name(5, true), "lost connection");
    EXPECT_EQ(name(static_cast<int>(Manager().GetConnectionStatus()), false), "Unknown");
}

TEST(MetricsSignal, AutoResetLetsOneThroughAndManualResetAll) {
    MetricsSignal one;
    EXPECT_FALSE(one.wait(0));
    one.set();
    one.set();
    EXPECT_TRUE(one.wait(-1));
    EXPECT_FALSE(one.wait(1));
    MetricsSignal all(false);
    all.set();
    EXPECT_TRUE(all.wait(0));
    EXPECT_TRUE(all.wait(0));
    all.reset();
    EXPECT_FALSE(all.wait(0));
}

struct MaskStep {
    unsigned long long (MetricsManager::*change)(unsigned long long, bool);
    unsigned long long bits, before, after;
    const char* event;  // what is posted when the change is to be told, with the argument as it was given
};

constexpr MaskStep kMaskSteps[] = {
    {&MetricsManager::SetBits, 0x1000, 0xFFF, 0x1FFF, "24 4096"},
    {&MetricsManager::ClearBits, 0xFFFF, 0x1FFF, 0, "27 65535"},
    {&MetricsManager::SetBitsAbsolute, 0x8000000000000000, 0, 0x8000000000000000, "25 -9223372036854775808"},
    {&MetricsManager::SetBits, 1, 0x8000000000000000, 0x8000000000000001, "24 1"},
};

TEST_F(RunningManagerTest, MaskChangesAreToldOnRequestAndToAWorker) {
    for (const MaskStep& step : kMaskSteps) {
        EXPECT_EQ((Manager().*step.change)(step.bits, true), step.before);
        EXPECT_EQ(Recorded().TakeManagerLines(), Lines{step.event});
        EXPECT_EQ(Manager().GetBits(), step.after) << "the worker applied it a second time";
    }
    Manager().SetBits(2, false);
    EXPECT_EQ(Recorded().TakeManagerLines(), Lines{});
    MetricsManager::FreeInstance();  // the next manager begins with the same mask, and has no worker
    for (const MaskStep& step : kMaskSteps) {
        EXPECT_EQ((Manager().*step.change)(step.bits, true), step.before);
        EXPECT_EQ(Manager().GetBits(), step.after);
    }
    EXPECT_EQ(Manager().GetStatistics().queued, 0U);
}

TEST_F(RunningManagerTest, EventsCarryTheirThreadsComponentAndCount) {
    Context context(0, Context::Create(true));
    std::thread([] { Context::Create(true); }).join();
    EXPECT_EQ(Manager().SetComponentId(0x1007), 1U);
    EXPECT_EQ(Manager().GetComponentId(), 0x1007U);
    Context::Create(true);
    std::thread([] { Context::Create(true); }).join();
    const auto events = Recorded().Take();
    std::vector<unsigned> components;
    for (const MetricsEvent& event : events) components.push_back(event.ComponentId());
    // Created, constructed, by another thread, now; a thread yet unknown starts with the new one; 12 bits are
    // kept.
    ASSERT_EQ(components, (std::vector<unsigned>{1, 1, 1, 7, 7}));
    EXPECT_GT(events[1].SequenceNumber(), events[0].SequenceNumber());
    EXPECT_GT(events[3].SequenceNumber(), events[1].SequenceNumber());
}

}  // namespace
}  // namespace Metrics::Testing
