// The queue when the system gives no more memory.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "metrics/manager/MpscQueue.h"
#include "tests/support/Memory.h"

namespace Metrics::Testing {
namespace {

TEST(MpscQueue, APushThatGetsNoMemoryLeavesItAsItWas) {
    if (kSanitized) GTEST_SKIP() << "sanitizers need their address space";
    detail::MpscQueue<std::uint64_t> queue;
    queue.SetCrowd(SIZE_MAX);
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    const rlimit little{64U << 20, before.rlim_max};  // the process has more than that already
    setrlimit(RLIMIT_AS, &little);
    std::size_t pushed = 0;
    std::size_t refused = 0;
    while (refused < 100 && pushed < 50'000'000) {
        ++(queue.TryPush(std::uint64_t{pushed}) ? pushed : refused);
    }
    setrlimit(RLIMIT_AS, &before);
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
