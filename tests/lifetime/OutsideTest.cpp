// Marks without a worker, and what is open from one run to the next.
#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using Outside = FreshTest;

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
