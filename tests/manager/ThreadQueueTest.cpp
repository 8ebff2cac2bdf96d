// The threads' queues on real threads, and what they do with memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "metrics/manager/queue/Cycle.h"
#include "metrics/manager/queue/QueueTraits.h"
#include "metrics/manager/queue/SequenceRange.h"

namespace Metrics::detail {
namespace {

struct Element {
    std::uint64_t thread;
    std::uint64_t number;
};

// The order of contexts and what memory orders allow are the model's matter; this is for the processor, and
// for who watches its plain accesses.
TEST(ThreadQueue, KeepsItsPromisesOnRealThreads) {
    constexpr std::uint64_t kThreads = 3;
    constexpr std::uint64_t kLives = 40;
    constexpr std::uint64_t kEach = 2000;
    QueueSet<Element, QueueTraits> queues;
    std::atomic<std::uint64_t> running{kThreads};
    std::vector<std::jthread> threads;
    for (std::uint64_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (std::uint64_t name = i * kLives; name < (i + 1) * kLives; ++name) {
                auto* queue = queues.Add(name);
                for (std::uint64_t number = 0; number < kEach; ++number) {
                    if (number % 7 == 0) queue->DrawStamp();
                    const auto build = [&](void* place) noexcept { new (place) Element{name, number}; };
                    EXPECT_TRUE(queue->TryBuild(build));
                }
                queue->Leave();
            }
            --running;
        });
    }
    std::vector<std::uint64_t> next(kThreads * kLives);
    Cycle<Element, QueueTraits> cycle(queues);
    std::vector<Element> batch;
    batch.reserve(300);
    for (std::uint64_t second = 0, after = 0; after < 2; ++second) {
        if (running == 0) ++after;
        ASSERT_TRUE(cycle.Begin());
        while (cycle.MoreFollows()) {
            batch.clear();
            cycle.TakeBatch(batch, 300);
            for (const Element& element : batch) EXPECT_EQ(element.number, next[element.thread]++);
        }
        queues.Commons().pool.Refill();
        if (second % 16 == 0) queues.Rest(second / 16);
        const auto counts = queues.Counts();
        EXPECT_LE(counts.taken, counts.published);
    }
    EXPECT_EQ(next, std::vector<std::uint64_t>(kThreads * kLives, kEach));
    EXPECT_EQ(queues.Size(), 0U);
}

// --- Memory, with the constants of the library ---

struct CountingTraits : QueueTraits {
    static inline std::size_t allocations = 0;
    static inline std::size_t bytes = 0;
    static void* Allocate(std::size_t size) noexcept {
        ++allocations;
        bytes += size;
        return QueueTraits::Allocate(size);
    }
    static void Free(void* memory, std::size_t size) noexcept {
        bytes -= size;
        QueueTraits::Free(memory, size);
    }
};

class ThreadQueueMemory : public testing::Test {
  protected:
    using Queues = QueueSet<std::uint64_t, CountingTraits>;

    ~ThreadQueueMemory() override {
        queues_.reset();
        EXPECT_EQ(CountingTraits::bytes, 0U);
    }

    // Marks `count` times. Returns how many allocations that took.
    std::size_t Mark(std::size_t count) {
        const std::size_t before = CountingTraits::allocations;
        for (std::size_t i = 0; i < count; ++i)
            EXPECT_TRUE(queue_->TryBuild([i](void* place) noexcept { new (place) std::uint64_t(i); }));
        return CountingTraits::allocations - before;
    }
    void Cycle() {
        ASSERT_TRUE(cycle_.Begin());
        while (cycle_.MoreFollows()) {
            batch_.clear();
            cycle_.TakeBatch(batch_, kBatch);
        }
        queues_->Commons().pool.Refill();
    }
    void Second() { queues_->Rest(++second_); }

    static constexpr std::size_t kBatch = 2048;
    std::unique_ptr<Queues> queues_ = std::make_unique<Queues>();
    Queues::Queue* queue_ = queues_->Add(1);
    detail::Cycle<std::uint64_t, CountingTraits> cycle_{*queues_};
    std::vector<std::uint64_t> batch_ = [] {
        std::vector<std::uint64_t> batch;
        batch.reserve(kBatch);
        return batch;
    }();
    std::uint64_t second_ = 0;
};

TEST_F(ThreadQueueMemory, NoMarkMeetsTheAllocatorInSteadyUse) {
    // A thread of a modest pace stays in its first block; a brisk one keeps what it has once needed.
    for (const std::size_t pace : {16U, 20'000U}) {
        std::size_t allocations = 0;
        for (int round = 0; round < 55; ++round) {
            const std::size_t made = Mark(pace - static_cast<std::size_t>(round) * pace / 1000);
            if (pace < 20 || round >= 5) allocations += made;
            Cycle();
            if (round % 10 == 4) Second();
        }
        EXPECT_EQ(allocations, 0U) << pace;
    }
    EXPECT_LE(sizeof(Queues::Queue), 1408U);
}

TEST_F(ThreadQueueMemory, AfterABacklogItComesBack) {
    constexpr std::size_t kMiB = std::size_t{1} << 20;
    Mark(600'000);
    EXPECT_GT(queues_->Commons().backlog.Bytes(), 36 * kMiB);
    Cycle();
    EXPECT_EQ(queues_->Commons().backlog.Bytes(), 0U);
    EXPECT_LE(CountingTraits::bytes, 17 * kMiB);
    for (int i = 0; i < 15; ++i) {
        Cycle();
        Second();
    }
    EXPECT_LE(CountingTraits::bytes, kMiB / 4);
    EXPECT_EQ(queues_->Commons().pool.Idle(), queues_->Commons().pool.Ready());
}

TEST_F(ThreadQueueMemory, OfThreadsThatWereThereNothingStays) {
    for (int i = 0; i < 1000; ++i) {
        auto* queue = queues_->Add(2);
        queue->DrawStamp();
        for (int n = 0; n < i; ++n)
            ASSERT_TRUE(queue->TryBuild([&](void* place) noexcept { new (place) std::uint64_t(0); }));
        EXPECT_TRUE(queue->Reserve(10));  // and not used
        queue->Leave();
    }
    Cycle();
    Cycle();
    EXPECT_EQ(queues_->Size(), 1U);
    EXPECT_EQ(queues_->Counts().published, 999U * 1000 / 2);
    EXPECT_LE(queues_->Commons().pool.Idle(), QueueTraits::kMostIdle);
}

TEST(SequenceRange, NumbersAscendAndAreUniqueOverTheWrap) {
    std::atomic<std::uint32_t> counter{0U - 2 * SequenceRange::kLength};
    std::array<SequenceRange, 2> threads;
    std::array<std::vector<std::uint32_t>, 2> numbers;
    for (std::size_t i = 0; i < 6000; ++i)
        numbers[i % 3 == 0 ? 1 : 0].push_back(threads[i % 3 == 0 ? 1 : 0].Next(counter));
    std::vector<std::uint32_t> all;
    for (const auto& ofThread : numbers) {
        for (std::size_t i = 1; i < ofThread.size(); ++i)
            ASSERT_LT(ofThread[i] - ofThread[i - 1] - 1, 1U << 31);
        all.insert(all.end(), ofThread.begin(), ofThread.end());
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
}

}  // namespace
}  // namespace Metrics::detail
