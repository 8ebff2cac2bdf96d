// No memory: marks are dropped and counted, and the queue works as before once there is some again.
#include <gtest/gtest.h>

#include <algorithm>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
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
        Allocator::exhausted = true;
        for (int i = 0; i < 100; ++i) {
            METRICS_SCOPE("call site that was never kept");
            METRICS_VALUE("nor this one", i);
            Scope owned(MetricsValue::Ref("borrowed"));
            owned.EmitAttribute("k", MetricsValue::Ref("must be copied"));
            Scope measured(MetricsValue::Ref("measured"),
                           Scope::kElapsedTime | Scope::kMemory | Scope::kLocation);
        }
        Allocator::exhausted = false;
        METRICS_SCOPE("after");
    }
    const Lines lines = TakeLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "6 after"), 1);
    EXPECT_EQ(lines.back(), "3");
}

}  // namespace
}  // namespace Metrics::Testing
