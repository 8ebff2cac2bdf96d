// The threads' queues on real threads, and what they do with memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "metrics/manager/queue/BusyFlag.h"
#include "metrics/manager/queue/Cycle.h"
#include "metrics/manager/queue/QueueTraits.h"
#include "metrics/manager/queue/SequenceRange.h"
#include "metrics/manager/queue/Stamping.h"

namespace Metrics::detail {
namespace {

// Before one step in eight the thread lets others go first.
template <class Value>
class HesitatingAtomic : public std::atomic<Value> {
  public:
    using Base = std::atomic<Value>;
    HesitatingAtomic(Value value = {}) : Base(value) {}  // NOLINT: like std::atomic

    Value load(std::memory_order order) const { return Hesitate(), Base::load(order); }
    void store(Value value, std::memory_order order) { Hesitate(), Base::store(value, order); }
    Value exchange(Value value, std::memory_order order) { return Hesitate(), Base::exchange(value, order); }
    Value fetch_add(Value value, std::memory_order order) {
        return Hesitate(), Base::fetch_add(value, order);
    }

  private:
    static void Hesitate() {
        thread_local std::minstd_rand random;
        if (random() % 8 == 0) std::this_thread::yield();
    }
};

struct HesitatingTraits : QueueTraits {
    template <class Value>
    using Atomic = HesitatingAtomic<Value>;
    static constexpr std::size_t kFirstSlots = 2;
    static constexpr std::size_t kSecondSlots = 3;
    static constexpr std::size_t kSlots = 4;
    static constexpr std::size_t kMostIdle = 8;
    static constexpr std::uint64_t kLargestStep = 5;
    static void* Allocate(std::size_t bytes) noexcept {
        thread_local std::minstd_rand random;
        return random() % 64 == 0 ? nullptr : operator new (bytes, std::align_val_t{64}, std::nothrow);
    }
    static void Free(void* memory, std::size_t) noexcept { operator delete (memory, std::align_val_t{64}); }
};

struct Element {
    std::uint64_t thread;
    std::uint64_t number;  // in its thread
    std::size_t context;
    std::uint64_t place;  // in its context
};

// A context that threads use in turns.
struct Shared {
    std::mutex turn;
    std::atomic<std::uint64_t> last{0};
    std::uint64_t events = 0;
};

TEST(ThreadQueue, KeepsItsPromisesOnRealThreads) {
    constexpr std::size_t kContexts = 3;
    QueueSet<Element, HesitatingTraits> queues;
    std::array<Shared, kContexts> contexts;
    std::atomic<std::uint64_t> names{0};
    std::atomic<int> running{3};
    std::atomic<std::uint64_t> posted{0};
    const auto live = [&](unsigned seed) {
        std::minstd_rand random(seed);
        for (int life = 0; life < 40; ++life) {
            const std::uint64_t name = ++names;
            auto* queue = queues.Add(name);
            if (queue == nullptr) continue;
            std::uint64_t number = 0;
            for (int visit = 0; visit < 12; ++visit) {
                const std::size_t index = random() % kContexts;
                Shared& context = contexts[index];
                const std::lock_guard lock(context.turn);
                for (auto n = random() % 4; n > 0; --n) {
                    StampForContext(*queue, context.last);
                    const Element element{name, number, index, context.events};
                    if (!queue->TryBuild([&](void* place) noexcept { new (place) Element(element); }))
                        continue;
                    ++number;
                    ++context.events;
                }
            }
            posted += number;
            queue->Leave();
        }
        --running;
    };
    std::vector<std::jthread> threads;
    for (unsigned i = 1; i <= 3; ++i) threads.emplace_back(live, i);
    std::jthread statistics([&] {
        while (running > 0) {
            const auto counts = queues.Counts();
            EXPECT_LE(counts.taken, counts.published);
        }
    });

    std::vector<std::uint64_t> next(3 * 40 + 1);
    std::array<std::uint64_t, kContexts> nextOf{};
    std::uint64_t taken = 0;
    Cycle<Element, HesitatingTraits> cycle(queues);
    std::vector<Element> batch;
    batch.reserve(3);
    for (std::uint64_t second = 0, after = 0; after < 2; ++second) {
        if (running == 0) ++after;
        ASSERT_TRUE(cycle.Begin());
        while (cycle.MoreFollows()) {
            batch.clear();
            cycle.TakeBatch(batch, 3);
            for (const Element& element : batch) {
                EXPECT_EQ(element.number, next[element.thread]++);
                EXPECT_EQ(element.place, nextOf[element.context]++);
            }
            taken += batch.size();
        }
        queues.Commons().pool.Refill();
        if (second % 16 == 0) queues.Rest(second / 16);
    }
    EXPECT_EQ(taken, posted);
    EXPECT_EQ(queues.Size(), 0U);
    EXPECT_EQ(queues.Counts().published, taken);
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
    for (int round = 0; round < 5; ++round) {
        Mark(20'000);
        Cycle();
        Second();
    }
    std::size_t allocations = 0;
    for (int round = 0; round < 50; ++round) {
        allocations += Mark(19'000 + static_cast<std::size_t>(round) * 10);
        Cycle();
        if (round % 10 == 0) Second();
    }
    EXPECT_EQ(allocations, 0U);
}

TEST_F(ThreadQueueMemory, AThreadOfAModestPaceStaysInItsFirstBlock) {
    Mark(16);
    Cycle();
    for (int round = 0; round < 1000; ++round) {
        EXPECT_EQ(Mark(16), 0U);
        Cycle();
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

// --- What else a mark needs ---

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

TEST(BusyFlag, AMarkWithinAMarkFindsItBusy) {
    BusyFlag flag;
    {
        const BusyGuard outer(flag);
        EXPECT_TRUE(outer);
        {
            const BusyGuard inner(flag);
            EXPECT_FALSE(inner);
        }
        EXPECT_TRUE(flag.IsBusy());
    }
    EXPECT_FALSE(flag.IsBusy());
}

}  // namespace
}  // namespace Metrics::detail
