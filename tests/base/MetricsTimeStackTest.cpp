#include "metrics/MetricsTimeStack.h"

#include <gtest/gtest.h>

namespace Metrics {
namespace {

TEST(MetricsTimeStack, ExclusiveIsLessDirectMeasuredChildren) {
    MetricsTimeStack stack;
    const auto open = [&](double processor, double user) {
        stack.Push();
        stack.Start({processor, user});
    };
    const auto close = [&](double processor, double user) {
        stack.Update({processor, user});
        stack.Pop();
    };
    close(1, 1);  // of an empty stack nothing is popped
    EXPECT_EQ(stack.Top().processor, 0);
    EXPECT_EQ(stack.TopExclusive().user, 0);
    open(10, 4);
    open(11, 5);
    close(13, 6);  // a child: 2 and 1
    stack.Push();
    open(13, 6);
    close(14, 6);  // a grandchild under an unmeasured child
    close(15, 7);
    stack.Update({20, 9});
    EXPECT_EQ(stack.Top().processor, 10);
    EXPECT_EQ(stack.Top().user, 5);
    EXPECT_EQ(stack.TopExclusive().processor, 8);
    EXPECT_EQ(stack.TopExclusive().user, 4);
}

}  // namespace
}  // namespace Metrics
