// Start and Shutdown, from many threads and many times, and marks outside of a run.
#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using StartTest = FreshTest;
using Outside = FreshTest;

TEST_F(StartTest, FromManyThreadsAtOnceThereIsOneWorker) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> workers{0};
        Manager().SetThreadInitFunction([&] { ++workers; });
        AtOnce(8, [&](int) {
            Manager().Start();
            EXPECT_NE(Manager().GetState() & MetricsManager::Running, 0U);
        });
        EXPECT_EQ(workers, 1);
        AtOnce(6, [&](int thread) {
            for (int i = 0; i < 20; ++i) {
                if ((thread + i) % 2 == 0) {
                    Manager().Start();
                } else {
                    Manager().Shutdown();
                }
                Manager().Unsubscribe(Manager().Subscribe(MetricsEventCategory::Events, [](const auto&) {}));
            }
        });
        Manager().Shutdown();
        EXPECT_EQ(Manager().GetState(), 0U);
    }
}

TEST_F(StartTest, AThousandTimesInARowNothingIsLost) {
    Manager().SetState(MetricsManager::Collecting, true);
    std::atomic<int> seen{0};
    for (int i = 1; i <= 1000; ++i) {
        Manager().Start();
        Manager().Start();
        Manager().Subscribe(MetricsEventCategory::Events, [&](const auto& batch) {
            for (const MetricsEvent& event : batch) seen += event.Type() == MetricsEventType::ContextCreate;
        });
        Context::Create(true);
        Manager().Shutdown();
        Manager().Shutdown();
        ASSERT_EQ(seen, i);
    }
}

void Mark() {
    Context context = Context::Root("outside");
    METRICS_SCOPE("outside");
    METRICS_VALUE("outside", 1);
    MetricsManager::GetInstance().SetBits(1, true);
}

TEST_F(Outside, MarksWithoutAWorkerAreDroppedAndCounted) {
    Recorder recorder;
    Mark();
    Manager().SetState(MetricsManager::Collecting, true);
    Mark();
    const std::uint64_t before = Manager().GetStatistics().dropped;
    EXPECT_GT(before, 2U);
    Manager().Start();
    EXPECT_EQ(recorder.TakeLines(), Lines{});
    Context early = Context::Root("early");
    Manager().Shutdown();
    Mark();
    early.Close();
    EXPECT_GT(Manager().GetStatistics().dropped, before);
    EXPECT_EQ(Manager().GetStatistics().queued, 0U);
}

// Opened by one run, closed in the next one: the manager is the same, so is what the ids mean.
TEST_F(Outside, AContextMayOutliveARun) {
    Manager().SetState(MetricsManager::Collecting, true);
    Manager().Start();
    Context context(0, Context::Create(true));
    Scope scope("long");
    Manager().Shutdown();
    Manager().Start();
    Recorder recorder;
    scope.Close();
    context.Close();
    EXPECT_EQ(recorder.TakeLines(),
              (Lines{"7 long", "6 time", "10 clock=~", "10 elapsed=~", "10 proc=~", "10 procexcl=~",
                     "10 user=~", "10 userexcl=~", "10 enter=~", "10 leave=~", "7 time", "7 cxt", "3"}));
}

}  // namespace
}  // namespace Metrics::Testing
