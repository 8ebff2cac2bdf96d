// Marks allocate nothing of their own: what the C++ allocator is asked for is counted. The queue's pages
// don't come from there.
#include <gtest/gtest.h>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "tests/support/Allocator.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using AllocationTest = RunningTest;

void Mark(int i) {
    METRICS_SCOPE("literal");
    METRICS_VALUE("rows", i);
    Scope scope(FourCC("code"));
    scope.Emit(EightCC("elapsed"), 1.5);
    scope.EmitAttribute(MetricsValue::Ref("key"), i);
    Scope measured(MetricsValue::Ref("borrowed"), 0x40000);
}

TEST_F(AllocationTest, PostingAllocatesNothing) {
    Context context(0, Context::Create(true));
    Mark(0);  // the context identifies itself, the call sites are kept
    const int before = Allocator::allocations;
    for (int i = 0; i < 10000; ++i) Mark(i);
    EXPECT_EQ(Allocator::allocations, before);
    METRICS_SCOPE_NAMED(std::string_view("a name made at run time"));
    EXPECT_GT(Allocator::allocations, before) << "or nothing is counted";
}

}  // namespace
}  // namespace Metrics::Testing
