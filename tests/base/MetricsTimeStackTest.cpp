#include "metrics/MetricsTimeStack.h"

#include <gtest/gtest.h>

namespace Metrics {
namespace {

void PushMeasured(MetricsTimeStack& stack, const MetricsTimeStack::Times& start) {
    stack.Push();
    stack.Start(start);
}

void CloseMeasured(MetricsTimeStack& stack, const MetricsTimeStack::Times& now) {
    stack.Update(now);
    stack.Pop();
}

TEST(MetricsTimeStack, EmptyReadsAsZerosAndPopsNothing) {
    MetricsTimeStack stack;
    stack.Pop();
    stack.Update({1, 1});
    EXPECT_EQ(stack.Top().processor, 0);
    EXPECT_EQ(stack.TopExclusive().user, 0);
}

TEST(MetricsTimeStack, ExclusiveIsLessDirectMeasuredChildren) {
    MetricsTimeStack stack;
    PushMeasured(stack, {10, 4});
    PushMeasured(stack, {11, 5});
    CloseMeasured(stack, {13, 6});  // a child: 2 and 1
    stack.Push();
    PushMeasured(stack, {13, 6});
    CloseMeasured(stack, {14, 6});  // a grandchild under an unmeasured child
    CloseMeasured(stack, {15, 7});
    stack.Update({20, 9});
    EXPECT_EQ(stack.Top().processor, 10);
    EXPECT_EQ(stack.Top().user, 5);
    EXPECT_EQ(stack.TopExclusive().processor, 8);
    EXPECT_EQ(stack.TopExclusive().user, 4);
}

}  // namespace
}  // namespace Metrics
