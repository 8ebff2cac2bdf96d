// The queue when the system gives no more memory.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <new>
#include <vector>

#include "metrics/manager/EventQueue.h"
#include "tests/support/Memory.h"

namespace Metrics::Testing {
namespace {

TEST(EventQueue, APushThatGetsNoMemoryLeavesItAsItWas) {
    if (kSanitized) GTEST_SKIP() << "sanitizers need their address space";
    detail::EventQueue queue;
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    const rlimit little{64U << 20, before.rlim_max};  // the process has more than that already
    setrlimit(RLIMIT_AS, &little);
    std::size_t pushed = 0;
    std::size_t refused = 0;
    while (refused < 100 && pushed < 50'000'000) {
        try {
            queue.Emplace(Opaque64(1), pushed, MetricsValue(), MetricsValue(), MetricsValue());
            ++pushed;
        } catch (const std::bad_alloc&) {
            ++refused;
        }
    }
    setrlimit(RLIMIT_AS, &before);
    ASSERT_EQ(refused, 100U);
    EXPECT_EQ(queue.Size(), pushed);
    queue.Emplace(Opaque64(1), pushed, MetricsValue(), MetricsValue(), MetricsValue());
    std::vector<MetricsEvent> batch;
    batch.reserve(16);
    queue.Drain(batch);
    ASSERT_EQ(batch.size(), pushed + 1);
    for (std::size_t i = 0; i <= pushed; ++i) ASSERT_EQ(batch[i].contextId.AsUInt64(), i);
}

}  // namespace
}  // namespace Metrics::Testing
