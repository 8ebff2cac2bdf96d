#define METRICS_DISABLED
#include <gtest/gtest.h>

#include "metrics/Instrument.h"
#include "metrics/MetricsPlugin.h"

// Nothing of a mark is left, or names that nobody declares would not compile.
TEST(DisabledMarksTest, AreNothing) {
    METRICS_SCOPE(unknownName);
    METRICS_SCOPE(unknownName, unknownBits);
    METRICS_SCOPE_NAMED(unknownName);
    METRICS_VALUE(unknownName, unknownValue);
    Metrics::MetricsPlugin::EmitEvent(nullptr, 1, nullptr);
}
