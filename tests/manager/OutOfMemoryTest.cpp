// No memory: marks are dropped and counted, and the queue works as before once there is some again.
#include <gtest/gtest.h>

#include <algorithm>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/manager/MpscQueue.h"
#include "tests/support/Allocator.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using OutOfMemory = RunningTest;

TEST_F(OutOfMemory, MarksAreDroppedAndTheRestGoesOn) {
    {
        Context context(0, Context::Create(true));
        METRICS_SCOPE("before");
        Recorded().Take();
        int kept = 0;
        const std::uint64_t dropped = Manager().GetStatistics().dropped;
        Allocator::exhausted = true;
        for (int i = 0; i < 100; ++i) {
            METRICS_SCOPE("call site that was never kept");
            METRICS_VALUE("nor this one", i);
            if (context.Emit(MetricsValue::Ref("kept"), i)) ++kept;
            Scope owned(MetricsValue::Ref("borrowed"));
            owned.EmitAttribute("k", MetricsValue::Ref("must be copied"));
            Scope measured(MetricsValue::Ref("measured"),
                           Scope::kElapsedTime | Scope::kMemory | Scope::kLocation);
        }
        Allocator::exhausted = false;
        EXPECT_EQ(kept, 0);
        EXPECT_GE(Manager().GetStatistics().dropped, dropped + 100);
        METRICS_SCOPE("after");
    }
    const Lines lines = TakeLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "6 after"), 1);
    EXPECT_EQ(lines.back(), "3");
}

TEST(OutOfMemoryQueue, APushThatIsRefusedLeavesItAsItWas) {
    detail::MpscQueue<std::uint64_t> queue;
    queue.SetCrowd(SIZE_MAX);
    std::size_t pushed = 0;
    std::size_t refused = 0;
    while (refused < 100 && pushed < 100'000) {
        Allocator::exhausted = pushed >= 10'000;
        ++(queue.TryPush(std::uint64_t{pushed}) ? pushed : refused);
    }
    Allocator::exhausted = false;
    ASSERT_EQ(refused, 100U);
    EXPECT_EQ(queue.Size(), pushed);
    EXPECT_TRUE(queue.TryPush(std::uint64_t{pushed}));
    std::vector<std::uint64_t> batch;
    queue.Drain(batch, queue.Size());
    ASSERT_EQ(batch.size(), pushed + 1);
    for (std::size_t i = 0; i <= pushed; ++i) ASSERT_EQ(batch[i], i);
}

}  // namespace
}  // namespace Metrics::Testing
