#define METRICS_DISABLED
#include <gtest/gtest.h>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsPlugin.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {

using DisabledMarksTest = RunningTest;

TEST_F(DisabledMarksTest, AreNothing) {
    Context context(0, Context::Create(true));
    int evaluated = 0;
    METRICS_SCOPE("scope");
    METRICS_SCOPE("scope", ++evaluated);
    METRICS_SCOPE_NAMED(++evaluated);
    METRICS_VALUE("value", ++evaluated);
    MetricsPlugin::EmitEvent(nullptr, 1, nullptr);
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(TakeLines(), (Lines{"1 0>1", "2 0>1"}));
}

}  // namespace Metrics::Testing
