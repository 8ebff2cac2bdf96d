// Posting, batches and subscriptions.
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

#include "metrics/Context.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using DispatchTest = FreshTest;
using RunningDispatchTest = RunningTest;

constexpr auto kEvents = MetricsEventCategory::Events;

void Ignore(const std::vector<MetricsEvent>&) {}

bool WaitFor(std::function<bool()> predicate) {
    return MetricsManager::GetInstance().WaitUntil(std::move(predicate), 20000);
}

TEST_F(DispatchTest, FirstCycleTellsOfMaskAndState) {
    Recorder recorder;
    Manager().Start();
    Lines lines;
    EXPECT_TRUE(WaitFor([&] { return !(lines = Recorder::ToLines(recorder.TakeAll())).empty(); }));
    EXPECT_EQ(lines, (Lines{"45", "46"}));
}

TEST_F(DispatchTest, EventsNeedAWorkerAndDeliveryNeedsCollecting) {
    Recorder recorder;
    Manager().SetBits(1, true);
    EXPECT_EQ(Manager().GetStatistics().queued, 0U);
    Manager().Start();
    Manager().SetBits(2, true);
    const std::uint64_t batches = Manager().GetStatistics().batches;
    Manager().SetBits(0x1000, false);  // seen by the worker, so that a cycle has passed
    EXPECT_TRUE(WaitFor([&] { return Manager().GetStatistics().batches > batches; }));
    for (const std::string& line : Recorder::ToLines(recorder.TakeAll()))
        EXPECT_TRUE(line == "45" || line == "46");
    EXPECT_EQ(Manager().GetStatistics().queued, 1U);
    Manager().SetState(MetricsManager::Collecting, true);
    EXPECT_EQ(recorder.TakeManagerLines(), Lines{"24 2"});
}

TEST_F(DispatchTest, QueuedEventsSurviveARestart) {
    Manager().Start();
    Manager().SetBits(2, true);
    Manager().Shutdown();
    EXPECT_EQ(Manager().GetStatistics().queued, 1U);
    Recorder recorder;
    Manager().Start();
    Manager().SetState(MetricsManager::Collecting, true);
    EXPECT_EQ(recorder.TakeManagerLines(), Lines{"24 2"});
}

TEST_F(RunningDispatchTest, ShutdownDeliversWhatWasPostedBefore) {
    std::atomic<int> seen{0};
    Manager().Subscribe(kEvents, [&](const std::vector<MetricsEvent>& batch) {
        seen += static_cast<int>(std::count_if(batch.begin(), batch.end(), [](const MetricsEvent& event) {
            return event.Type() == MetricsEventType::ContextCreate;
        }));
    });
    for (int i = 0; i < 10000; ++i) Context::Create(true);
    Manager().Shutdown();
    EXPECT_EQ(seen, 10000);
}

TEST_F(RunningDispatchTest, BitsAndStateChangedCloseTheirBatch) {
    std::vector<Lines> batches;
    std::promise<void> mayGo;
    std::atomic<bool> blocked{false};
    const int id = Manager().Subscribe(kEvents, [&, go = mayGo.get_future().share()](const auto& batch) {
        batches.push_back(Recorder::ToLines(batch));
        blocked = true;
        go.wait();
    });
    EXPECT_TRUE(WaitFor([&] { return blocked.load(); }));
    // The worker is held; all of this goes into its next batch.
    Manager().SetBits(0x1000, true);
    Context::Create(true);
    Manager().SetState(MetricsManager::Collecting, false);
    Manager().SetState(MetricsManager::Collecting, true);
    Manager().SetBits(0x2000, true);
    mayGo.set_value();
    Recorded().Take();
    Manager().Unsubscribe(id);
    ASSERT_GE(batches.size(), 2U);
    const Lines& next = batches[1];
    ASSERT_GE(next.size(), 4U);
    EXPECT_EQ(Lines(next.begin(), next.begin() + 3), (Lines{"24 4096", "1 0>1", "24 8192"}));
    EXPECT_EQ(next.back(), "45");
}

TEST_F(RunningDispatchTest, SmallestFreeIdIsGivenAndTheUnionIsTold) {
    const auto category = [](int bits) { return static_cast<MetricsEventCategory>(bits); };
    EXPECT_EQ(Manager().Subscribe(category(0x302), Ignore), 2);  // the recorder has 1
    EXPECT_EQ(Manager().Subscribe(category(0x80), Ignore), 3);
    Manager().Unsubscribe(2);
    EXPECT_EQ(Manager().Subscribe(category(4), Ignore), 2);
    Manager().Unsubscribe(77);
    EXPECT_EQ(Recorded().TakeManagerLines(), (Lines{"21 3", "21 131", "21 129", "21 133", "21 133"}));
}

TEST_F(RunningDispatchTest, SubscribersGetTheSameBatchInOrderOfIds) {
    std::vector<std::pair<int, const void*>> calls;
    for (int i = 0; i < 3; ++i) {
        Manager().Subscribe(kEvents, [&calls, i](const auto& batch) { calls.emplace_back(i, &batch); });
    }
    Recorded().Take();
    Manager().Shutdown();
    ASSERT_GE(calls.size(), 3U);
    const void* const batch = calls.back().second;
    calls.erase(calls.begin(), calls.end() - 3);
    EXPECT_EQ(calls, (std::vector<std::pair<int, const void*>>{{0, batch}, {1, batch}, {2, batch}}));
}

TEST_F(RunningDispatchTest, StatisticsAddUp) {
    for (int i = 0; i < 5000; ++i) Context::Create(true);
    Recorded().Take();
    Manager().Shutdown();
    const MetricsStatistics before = Manager().GetStatistics();
    EXPECT_EQ(before.posted, before.delivered + before.queued);
    EXPECT_GE(before.delivered, 5000U);
    EXPECT_EQ(before.queued, 0U);
    EXPECT_EQ(before.dropped, 0U);
    EXPECT_GE(before.largestBatch, before.delivered / before.batches);
    Context::Create(true);
    const MetricsStatistics after = Manager().GetStatistics();
    EXPECT_EQ(after.dropped, 1U);
    EXPECT_EQ(after.posted, before.posted);
}

// --- What throws on the worker
// -----------------------------------------------------------------------------------

TEST_F(RunningDispatchTest, ACallbackThatThrowsEndsTheWorkerAfterItsBatch) {
    LogKeeper log;
    std::atomic<bool> thrown{false};
    std::atomic<bool> seenAfterwards{false};
    Manager().Subscribe(kEvents, Ignore);
    Manager().Subscribe(kEvents, [&](const auto&) { seenAfterwards = thrown.load(); });
    Manager().Unsubscribe(2);
    Manager().Subscribe(kEvents, [&](const auto&) {
        thrown = true;
        throw std::runtime_error("broken");
    });
    EXPECT_TRUE(WaitFor([&] { return Manager().GetState() == MetricsManager::Collecting; }));
    EXPECT_TRUE(seenAfterwards);
    EXPECT_EQ(log.Take(), Lines{"MX: MetricsManager: the worker ends: broken"});
    Manager().Unsubscribe(2);
    Manager().Unsubscribe(3);
    Manager().Start();
    Context::Create(true);
    EXPECT_EQ(TakeLines(), Lines{"1 0>1"});
}

TEST_F(RunningDispatchTest, AnEmptyCallbackEndsTheWorkerToo) {
    LogKeeper log;
    Manager().Subscribe(kEvents, nullptr);
    EXPECT_TRUE(WaitFor([&] { return Manager().GetState() == MetricsManager::Collecting; }));
    EXPECT_EQ(log.Take(), Lines{"MX: MetricsManager: the worker ends: bad_function_call"});
    Manager().Unsubscribe(2);
    Manager().Start();
    Context::Create(true);
    EXPECT_EQ(TakeLines(), Lines{"1 0>1"});
}

}  // namespace
}  // namespace Metrics::Testing
