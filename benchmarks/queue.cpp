// The event queue beside oneTBB's, one record at a time from 1, 2 and 4 threads while another one drains.
#include <benchmark/benchmark.h>
#include <tbb/concurrent_queue.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <thread>
#include <utility>
#include <vector>

#include "metrics/manager/MpscQueue.h"

namespace {

using namespace Metrics;

constexpr int kRound = 4096;

struct Record {
    std::array<std::byte, 60> bytes{};
};

class Own {
  public:
    void Push(const Record& record) { benchmark::DoNotOptimize(queue_.TryPush(Record(record))); }
    std::size_t Drain(std::vector<Record>& batch) {
        queue_.Drain(batch, queue_.Size());
        return batch.size();
    }

  private:
    detail::MpscQueue<Record> queue_;
};

class OneTbb {
  public:
    void Push(const Record& record) { queue_.push(record); }
    std::size_t Drain(std::vector<Record>& batch) {
        Record record;
        while (queue_.try_pop(record)) batch.push_back(record);
        return batch.size();
    }

  private:
    tbb::concurrent_queue<Record> queue_;
};

// An iteration is a round of every producer, from its first push until the last record is out of the queue.
template <class Queue>
void PushAndDrain(benchmark::State& state) {
    const auto producers = static_cast<int>(state.range(0));
    Queue queue;
    std::vector<Record> batch;
    batch.reserve(static_cast<std::size_t>(producers) * kRound);
    for (auto _ : state) {
        std::vector<std::thread> threads;
        for (int i = 0; i < producers; ++i) {
            threads.emplace_back([&] {
                const Record record;
                for (int n = 0; n < kRound; ++n) queue.Push(record);
            });
        }
        batch.clear();
        while (queue.Drain(batch) < static_cast<std::size_t>(producers) * kRound) std::this_thread::yield();
        for (auto& thread : threads) thread.join();
    }
    state.SetItemsProcessed(state.iterations() * producers * kRound);
}
BENCHMARK(PushAndDrain<Own>)->Arg(1)->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK(PushAndDrain<OneTbb>)->Arg(1)->Arg(2)->Arg(4)->UseRealTime();

}  // namespace
