// The threads' queues beside the one queue of all threads: a push of one record from 1 and 2 threads while
// another one takes, and a cycle over queues that are quiet.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "metrics/manager/MpscQueue.h"
#include "metrics/manager/queue/Cycle.h"
#include "metrics/manager/queue/QueueTraits.h"
#include "metrics/manager/queue/Stamping.h"

namespace {

using namespace Metrics;

struct Record {
    std::array<std::byte, 60> bytes{};
};
constexpr std::size_t kBatch = 2048;

using Set = detail::QueueSet<Record, detail::QueueTraits>;
using Cycle = detail::Cycle<Record, detail::QueueTraits>;

class ThreadQueues {
  public:
    class Producer {
      public:
        explicit Producer(ThreadQueues& queues) : queue_(queues.set_.Add(++queues.names_)) {}
        ~Producer() { queue_->Leave(); }
        Producer(const Producer&) = delete;
        Producer& operator=(const Producer&) = delete;
        void Push(const Record& record) {
            detail::StampForContext(*queue_, last_);
            benchmark::DoNotOptimize(
                queue_->TryBuild([&](void* place) noexcept { new (place) Record(record); }));
        }

      private:
        Set::Queue* queue_;
        std::atomic<std::uint64_t> last_{0};
    };

    void Drain(std::vector<Record>& batch) {
        cycle_.Begin();
        while (cycle_.MoreFollows()) {
            batch.clear();
            cycle_.TakeBatch(batch, kBatch);
        }
        set_.Commons().pool.Refill();
    }

  private:
    Set set_;
    Cycle cycle_{set_};
    std::atomic<std::uint64_t> names_{0};
};

class OneQueue {
  public:
    class Producer {
      public:
        explicit Producer(OneQueue& queue) : queue_(queue.queue_) {}
        void Push(const Record& record) { benchmark::DoNotOptimize(queue_.TryPush(Record(record))); }

      private:
        detail::MpscQueue<Record>& queue_;
    };

    OneQueue() { queue_.SetCrowd(SIZE_MAX); }
    void Drain(std::vector<Record>& batch) {
        for (std::size_t left = queue_.Size(); left > 0;) {
            batch.clear();
            const std::size_t count = std::min(left, kBatch);
            queue_.Drain(batch, count);
            left -= count;
        }
    }

  private:
    detail::MpscQueue<Record> queue_;
};

// A worker takes every millisecond what was pushed.
template <class Queue>
void Push(benchmark::State& state) {
    static std::unique_ptr<Queue> queue;
    static std::jthread worker;
    if (state.thread_index() == 0) {
        queue = std::make_unique<Queue>();
        worker = std::jthread([](const std::stop_token& stop) {
            std::vector<Record> batch;
            batch.reserve(kBatch);
            while (!stop.stop_requested()) {
                queue->Drain(batch);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    std::unique_ptr<typename Queue::Producer> producer;
    const Record record;
    for (auto _ : state) {
        if (!producer) producer = std::make_unique<typename Queue::Producer>(*queue);
        producer->Push(record);
    }
    producer.reset();
    if (state.thread_index() == 0) worker = {};
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Push<ThreadQueues>)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(Push<OneQueue>)->Threads(1)->Threads(2)->UseRealTime();

// Threads that marked once and are quiet since.
void QuietCycle(benchmark::State& state) {
    auto queues = std::make_unique<ThreadQueues>();
    std::vector<std::unique_ptr<ThreadQueues::Producer>> producers;
    std::vector<Record> batch;
    batch.reserve(kBatch);
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        producers.push_back(std::make_unique<ThreadQueues::Producer>(*queues));
        producers.back()->Push(Record{});
    }
    for (auto _ : state) queues->Drain(batch);
    producers.clear();
    queues->Drain(batch);
}
BENCHMARK(QuietCycle)->Arg(10)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace
