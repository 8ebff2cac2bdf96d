// What a mark costs the thread that makes it, beside the floor that the design cannot avoid: one read of the
// system clock and two pushes of a 60-byte record onto the same kind of queue, drained in the same way.
//
// Floor and scope run in turns, in rounds of a fixed number of iterations between which the queues are
// emptied, so that a noisy machine disturbs both alike and the ratio holds.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstddef>
#include <thread>
#include <vector>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsManager.h"
#include "metrics/Session.h"
#include "metrics/manager/Core.h"
#include "metrics/manager/MpscQueue.h"
#include "metrics/platform/Platform.h"

namespace {

using namespace Metrics;
using Clock = std::chrono::steady_clock;

constexpr int kRound = 4096;

struct Record {
    std::array<std::byte, 60> bytes;
};

// The floor's queue and its drainer, which sleeps while a round runs, as the worker does.
class FloorQueue {
  public:
    FloorQueue() : drainer_([this] { Drain(); }) {}
    ~FloorQueue() {
        stop_ = true;
        wake_.set();
        drainer_.join();
    }

    void Push(const Record& record) { benchmark::DoNotOptimize(queue_.TryPush(Record(record))); }

    void Empty() {
        wake_.set();
        while (queue_.Size() > 0) std::this_thread::yield();
    }

  private:
    void Drain() {
        std::vector<Record> batch;
        batch.reserve(4 * kRound);
        while (!stop_) {
            wake_.wait(1000);
            batch.clear();
            queue_.Drain(batch, queue_.Size());
            benchmark::DoNotOptimize(batch.data());
        }
    }

    detail::MpscQueue<Record> queue_;
    MetricsSignal wake_;
    std::atomic<bool> stop_{false};
    std::thread drainer_;
};

void FloorRound(FloorQueue& queue) {
    Record record{};
    for (int i = 0; i < kRound; ++i) {
        const std::int64_t now = platform::SystemTimeMilliseconds();
        record.bytes[0] = static_cast<std::byte>(now);
        queue.Push(record);
        queue.Push(record);
    }
}

void ScopeRound() {
    for (int i = 0; i < kRound; ++i) {
        Scope scope(FourCC("work"));
        benchmark::DoNotOptimize(&scope);
    }
}

double Seconds(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

// Runs `round` on as many threads as the barrier counts and returns the seconds until the last is through.
template <class Round>
double TimeRound(std::barrier<>& barrier, Round round) {
    barrier.arrive_and_wait();
    const auto start = Clock::now();
    round();
    barrier.arrive_and_wait();
    return Seconds(Clock::now() - start);
}

double Median(std::vector<double>& times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

void ScopeAgainstFloor(benchmark::State& state) {
    const auto threads = static_cast<int>(state.range(0));
    Session session;
    FloorQueue floorQueue;
    const auto core = detail::Core::Current();
    std::barrier barrier(threads);
    std::atomic<bool> done{false};
    std::vector<double> floorRounds;
    std::vector<double> scopeRounds;

    const auto turn = [&](bool first) {
        const double floor = TimeRound(barrier, [&] { FloorRound(floorQueue); });
        if (first) floorQueue.Empty();
        const double scope = TimeRound(barrier, [] { ScopeRound(); });
        if (first) core->WaitDelivered();
        if (first) floorRounds.push_back(floor);
        if (first) scopeRounds.push_back(scope);
    };
    std::vector<std::thread> others;
    for (int i = 1; i < threads; ++i) {
        others.emplace_back([&] {
            Context context = Context::Root("other");
            for (;;) {
                barrier.arrive_and_wait();
                if (done) return;
                turn(false);
            }
        });
    }
    {
        Context context = Context::Root("first");
        for (auto _ : state) {
            barrier.arrive_and_wait();
            turn(true);
        }
        done = true;
        barrier.arrive_and_wait();
    }
    for (auto& other : others) other.join();
    const double floor = Median(floorRounds) / kRound;
    const double scope = Median(scopeRounds) / kRound;
    state.counters["floor_ns"] = floor * 1e9;
    state.counters["scope_ns"] = scope * 1e9;
    state.counters["ratio"] = scope / floor;
}
BENCHMARK(ScopeAgainstFloor)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// Single operations, each timed on its own: two clock reads are in every figure.
template <class Operation, class Between>
void Percentiles(benchmark::State& state, Operation operation, Between between) {
    std::vector<double> times;
    for (auto _ : state) {
        for (int i = 0; i < kRound; ++i) {
            const auto start = Clock::now();
            operation();
            times.push_back(Seconds(Clock::now() - start) * 1e9);
        }
        state.PauseTiming();
        between();
        state.ResumeTiming();
    }
    std::sort(times.begin(), times.end());
    const auto at = [&](double share) {
        return times[static_cast<std::size_t>(share * double(times.size() - 1))];
    };
    state.counters["p50_ns"] = at(0.5);
    state.counters["p99_ns"] = at(0.99);
    state.counters["p99.9_ns"] = at(0.999);
    state.counters["max_ns"] = times.back();
}

void FloorLatency(benchmark::State& state) {
    FloorQueue queue;
    const Record record{};
    Percentiles(
        state,
        [&] {
            benchmark::DoNotOptimize(platform::SystemTimeMilliseconds());
            queue.Push(record);
            queue.Push(record);
        },
        [&] { queue.Empty(); });
}
BENCHMARK(FloorLatency)->Iterations(200);

void ScopeLatency(benchmark::State& state) {
    Session session;
    Context context = Context::Root("latency");
    const auto core = detail::Core::Current();
    Percentiles(
        state, [] { Scope scope(FourCC("work")); }, [&] { core->WaitDelivered(); });
}
BENCHMARK(ScopeLatency)->Iterations(200);

void ScopeGateOff(benchmark::State& state) {
    Session session;
    Context context = Context::Root("gated");
    for (auto _ : state) {
        Scope scope(FourCC("work"), 0x40000);
        benchmark::DoNotOptimize(&scope);
    }
}
BENCHMARK(ScopeGateOff);

void MacroGateOff(benchmark::State& state) {
    Session session;
    Context context = Context::Root("gated");
    for (auto _ : state) {
        METRICS_SCOPE("work", 0x40000);
    }
}
BENCHMARK(MacroGateOff);

void ScopeWithoutContext(benchmark::State& state) {
    Session session;
    for (auto _ : state) {
        Scope scope(FourCC("work"));
        benchmark::DoNotOptimize(&scope);
    }
}
BENCHMARK(ScopeWithoutContext);

void ScopeBeforeStart(benchmark::State& state) {
    MetricsManager::FreeInstance();
    Context context = Context::Root("early");
    for (auto _ : state) {
        Scope scope(FourCC("work"));
        benchmark::DoNotOptimize(&scope);
    }
}
BENCHMARK(ScopeBeforeStart);

// A scope with what it can measure: location, memory, elapsed time with processor time and without, and all.
void ScopeMeasuring(benchmark::State& state) {
    Session session;
    Context context = Context::Root("measured");
    const auto core = detail::Core::Current();
    int marks = 0;
    for (auto _ : state) {
        { METRICS_SCOPE("work", static_cast<unsigned long long>(state.range(0))); }
        if (++marks % kRound == 0) core->WaitDelivered();
    }
}
BENCHMARK(ScopeMeasuring)->Arg(0)->Arg(0x400000)->Arg(0x200000)->Arg(0x100000)->Arg(0x800000)->Arg(0x700000);

}  // namespace
