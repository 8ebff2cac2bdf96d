// States, bits, ids, log and the inert parts of the manager.
#include <gtest/gtest.h>

#include <thread>

#include "metrics/Context.h"
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
    EXPECT_FALSE(Manager().IsConnected());
    std::string words;
    for (int status = 0; status < 7; ++status)
        words +=
            MetricsManager::GetConnectionStatusString(MetricsConnectionStatus(status), status == 5) + ", ";
    EXPECT_EQ(words,
              "Unknown, Disconnected, Connecting, Connected, Reconnecting, lost connection, Unknown, ");
}

TEST_F(RunningManagerTest, MaskChangesAreToldOnRequestAndToAWorker) {
    const struct {
        unsigned long long (MetricsManager::*change)(unsigned long long, bool);
        unsigned long long bits, before, after;
        const char* event;  // what is posted, with the argument as it was given
    } steps[] = {
        {&MetricsManager::SetBits, 0x1000, 0xFFF, 0x1FFF, "24 4096"},
        {&MetricsManager::ClearBits, 0xFFFF, 0x1FFF, 0, "27 65535"},
        {&MetricsManager::SetBitsAbsolute, 1ULL << 63, 0, 1ULL << 63, "25 -9223372036854775808"},
        {&MetricsManager::SetBits, 1, 1ULL << 63, 1ULL << 63 | 1, "24 1"},
    };
    for (const bool hasWorker : {true, false}) {
        const auto told = [&] { return hasWorker ? Recorded().TakeManagerLines() : Lines{}; };
        for (const auto& step : steps) {
            EXPECT_EQ((Manager().*step.change)(step.bits, true), step.before);
            EXPECT_EQ(told(), hasWorker ? Lines{step.event} : Lines{});
            EXPECT_EQ(Manager().GetBits(), step.after) << "the worker applied it a second time";
        }
        Manager().SetBits(2, false);
        EXPECT_EQ(told(), Lines{});
        EXPECT_EQ(Manager().GetStatistics().queued, 0U);
        MetricsManager::FreeInstance();  // the next manager begins with the same mask, and has no worker
    }
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
    for (std::size_t i = 1; i < 4; ++i) EXPECT_GT(events[i].SequenceNumber(), events[i - 1].SequenceNumber());
}

}  // namespace
}  // namespace Metrics::Testing
