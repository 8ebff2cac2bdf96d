#include "metrics/manager/MpscQueue.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "tests/support/Memory.h"

namespace Metrics::detail {
namespace {

TEST(MpscQueue, EveryElementArrivesOnceAndInItsProducersOrder) {
    constexpr int kProducers = 4;
    constexpr int kEach = 50'000;
    using Element = std::pair<std::size_t, std::unique_ptr<int>>;  // its producer and its number
    MpscQueue<Element> queue;
    std::vector<std::jthread> producers;
    for (std::size_t producer = 0; producer < kProducers; ++producer) {
        producers.emplace_back([&, producer] {
            for (int i = 0; i < kEach; ++i) EXPECT_TRUE(queue.TryPush({producer, std::make_unique<int>(i)}));
        });
    }
    std::vector<int> next(kProducers, 0);
    std::vector<Element> batch;
    for (std::size_t left = kProducers * kEach; left > 0; left -= batch.size()) {
        batch.clear();
        queue.Drain(batch, queue.Size());
        for (const auto& [producer, number] : batch) ASSERT_EQ(*number, next[producer]++);
    }
    producers.clear();
    EXPECT_EQ(queue.Size(), 0U);
}

TEST(MpscQueue, ReleasesWhatNobodyTook) {
    const auto shared = std::make_shared<int>(1);
    {
        MpscQueue<std::shared_ptr<int>> queue;
        std::vector<std::shared_ptr<int>> batch;
        for (int i = 0; i < 3000; ++i) ASSERT_TRUE(queue.TryPush(std::shared_ptr(shared)));
        queue.Drain(batch, queue.Size());
        for (int i = 0; i < 3000; ++i) ASSERT_TRUE(queue.TryPush(std::shared_ptr(shared)));
        EXPECT_EQ(shared.use_count(), 6001);
    }
    EXPECT_EQ(shared.use_count(), 1);
}

TEST(MpscQueue, GoesRoundItsDirectoryInTheMemoryOfAFewBlocks) {
    if (Testing::kSanitized) GTEST_SKIP() << "takes minutes there";
    MpscQueue<std::uint64_t> queue;
    std::vector<std::uint64_t> batch;
    const std::int64_t before = Testing::ResidentKiB();
    for (std::uint64_t i = 0; i < MpscQueue<std::uint64_t>::kCapacity + 100'000;) {
        for (int n = 0; n < 1500; ++n) ASSERT_TRUE(queue.TryPush(i++));
        queue.Drain(batch, queue.Size());
        ASSERT_EQ(batch.size(), 1500U);
        ASSERT_EQ(batch.front(), i - 1500);
        ASSERT_EQ(batch.back(), i - 1);
        batch.clear();
    }
    EXPECT_LT(Testing::ResidentKiB(), before + 4096);
}

}  // namespace
}  // namespace Metrics::detail
