// Posting, batches and subscriptions.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "metrics/Context.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using DispatchTest = FreshTest;
using RunningDispatchTest = RunningTest;

constexpr auto kEvents = MetricsEventCategory::Events;

TEST_F(DispatchTest, EventsNeedAWorkerAndDeliveryNeedsCollectingAndARestartLosesNone) {
    Recorder recorder;
    Lines lines;
    const auto arrive = [&] {
        return Manager().WaitUntil([&] { return !(lines = Recorder::ToLines(recorder.TakeAll())).empty(); },
                                   20000);
    };
    Manager().SetBits(1, true);
    EXPECT_EQ(Manager().GetStatistics().queued, 0U);
    Manager().Start();
    Manager().SetBits(2, true);
    EXPECT_TRUE(arrive());
    EXPECT_EQ(lines, (Lines{"45", "46"})) << "the first cycle tells of mask and state";
    Manager().SetBits(0x1000, false);
    EXPECT_TRUE(arrive());
    EXPECT_EQ(lines, Lines{"45"});
    Manager().Shutdown();
    EXPECT_EQ(Manager().GetStatistics().queued, 1U);
    Recorder later;
    Manager().Start();
    Manager().SetState(MetricsManager::Collecting, true);
    EXPECT_EQ(later.TakeManagerLines(), Lines{"24 2"});
}

TEST_F(RunningDispatchTest, ShutdownDeliversWhatWasPostedBeforeAndTheStatisticsAddUp) {
    for (int i = 0; i < 10000; ++i) Context::Create(true);
    Manager().Shutdown();
    Lines seen = Recorder::ToLines(Recorded().TakeAll());
    std::erase(seen, "46");
    ASSERT_EQ(seen.size(), 10000U);
    EXPECT_EQ(seen.back(), "1 0>10000");
    const MetricsStatistics before = Manager().GetStatistics();
    EXPECT_GE(before.delivered, 10000U);
    EXPECT_EQ(before.queued, 0U);
    EXPECT_EQ(before.dropped, 0U);
    EXPECT_GE(before.largestBatch, before.delivered / before.batches);
    Context::Create(true);
    const MetricsStatistics after = Manager().GetStatistics();
    EXPECT_EQ(after.dropped, 1U);
    EXPECT_EQ(after.posted, before.posted);
}

TEST_F(RunningDispatchTest, ACycleComesInBatchesAndTheLastTellsOfBitsAndState) {
    Gate gate;
    std::vector<Lines> batches;
    const int id = Manager().Subscribe(kEvents, [&](const auto& batch) {
        batches.push_back(Recorder::ToLines(batch));
        gate.Pass();
    });
    gate.WaitForSomebody();
    // The worker is held; all of this goes into its next cycle.
    Lines posted = {"24 4096"};
    Manager().SetBits(0x1000, true);
    for (int created = 1; created <= 5000; ++created) {
        Context::Create(true);
        posted.push_back("1 0>" + std::to_string(created));
    }
    Manager().SetState(MetricsManager::Collecting, false);
    Manager().SetState(MetricsManager::Collecting, true);
    Manager().SetBits(0x2000, true);
    posted.push_back("24 8192");
    gate.Open();
    Recorded().Take();
    Manager().Unsubscribe(id);
    ASSERT_GE(batches.size(), 4U);
    Lines cycle;
    for (std::size_t i = 1; i < batches.size() && cycle.size() < posted.size(); ++i) {
        EXPECT_LE(batches[i].size(), 2050U);
        cycle.insert(cycle.end(), batches[i].begin(), batches[i].end());
    }
    ASSERT_GT(cycle.size(), posted.size());
    EXPECT_EQ(cycle.back(), "45");
    cycle.resize(posted.size());  // more may have come meanwhile
    EXPECT_EQ(cycle, posted);
}

TEST_F(RunningDispatchTest, SubscribersGetTheSmallestFreeIdAndTheSameBatchInTheirOrder) {
    std::vector<std::pair<int, const void*>> calls;
    const auto subscribe = [&](int category, int id) {
        const auto callback = [&calls, id](const auto& batch) { calls.emplace_back(id, &batch); };
        EXPECT_EQ(Manager().Subscribe(static_cast<MetricsEventCategory>(category), callback), id);
    };
    subscribe(0x302, 2);  // the recorder has 1
    subscribe(0x80, 3);
    Manager().Unsubscribe(2);
    subscribe(4, 2);
    Manager().Unsubscribe(77);
    EXPECT_EQ(Recorded().TakeManagerLines(), (Lines{"21 3", "21 131", "21 129", "21 133", "21 133"}))
        << "the union of the categories is told";
    Manager().Shutdown();
    ASSERT_GE(calls.size(), 2U);
    const void* const batch = calls.back().second;
    calls.erase(calls.begin(), calls.end() - 2);
    EXPECT_EQ(calls, (std::vector<std::pair<int, const void*>>{{2, batch}, {3, batch}}));
}

TEST_F(RunningDispatchTest, ACallbackThatThrowsEndsTheWorkerAndDeprivesNobodyOfItsCycle) {
    const std::pair<MetricsManager::Callback, std::string> broken[] = {
        {[](const auto&) { throw std::runtime_error("broken"); }, "broken"},
        {[](const auto&) { throw 42; }, "unknown exception"},
        {nullptr, "bad_function_call"},
    };
    for (const auto& [callback, reason] : broken) {
        LogKeeper log;
        Manager().SetState(MetricsManager::Collecting, false);
        Manager().Unsubscribe(77);  // the cycle that does so also tells of the state
        for (int i = 0; i < 5000; ++i) Manager().SetBits(1, true);
        const int id = Manager().Subscribe(kEvents, callback);
        Recorder neighbour;
        Manager().SetState(MetricsManager::Collecting, true);
        EXPECT_TRUE(WaitForState(MetricsManager::Collecting));
        const Lines seen = Recorder::ToLines(neighbour.TakeAll());
        EXPECT_EQ(std::count(seen.begin(), seen.end(), "24 1"), 5000);
        EXPECT_EQ(log.Take(), Lines{"MX: MetricsManager: the worker ends: " + reason});
        Manager().Unsubscribe(id);
        Manager().Start();
    }
    Recorded().Take();
    Context::Create(true);
    EXPECT_EQ(TakeLines(), Lines{"1 0>1"});
}

}  // namespace
}  // namespace Metrics::Testing
