// What every event pays before and after the queue: making and moving values, the clock, the event record as
// bytes. Figures that have a floor stand right below it.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <new>
#include <utility>

#include "metrics/MetricsEvent.h"
#include "metrics/MetricsValueBuffer.h"
#include "metrics/platform/Platform.h"

namespace Metrics {
namespace {

MetricsEvent SampleEvent() {
    return {Opaque64(MetricsEvent::PackHeader(MetricsEventType::ScopeValue, 1, 7)), 42,
            MetricsValue::FromCurrentTime(), EightCC("elapsed"), 0.25};
}

template <typename Make>
void CopyValue(benchmark::State& state, Make make) {
    const MetricsValue value = make();
    for (auto _ : state) {
        MetricsValue copy = value;
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK_CAPTURE(CopyValue, integer, [] { return MetricsValue(42); });
BENCHMARK_CAPTURE(CopyValue, borrowed, [] { return MetricsValue::Ref("a borrowed name"); });
BENCHMARK_CAPTURE(CopyValue, owned, [] { return MetricsValue("an owned text"); });

void MoveOwnedThereAndBack(benchmark::State& state) {
    MetricsValue here = "an owned text";
    for (auto _ : state) {
        MetricsValue there = std::move(here);
        benchmark::DoNotOptimize(there);
        here = std::move(there);
    }
}
BENCHMARK(MoveOwnedThereAndBack);

void ClockRead(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(platform::SystemTimeMilliseconds());
}
BENCHMARK(ClockRead);

void FromCurrentTime(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(MetricsValue::FromCurrentTime());
}
BENCHMARK(FromCurrentTime);

// What a queue does: an event constructed in place from fresh values, and destroyed.
void EmplaceEvent(benchmark::State& state) {
    alignas(MetricsEvent) std::byte slot[sizeof(MetricsEvent)];
    MetricsValue time = MetricsValue::FromCurrentTime();
    for (auto _ : state) {
        auto* event =
            new (slot) MetricsEvent(Opaque64(1), 42, MetricsValue(time), MetricsValue::Ref("name"), 0);
        benchmark::DoNotOptimize(event);
        benchmark::ClobberMemory();
        event->~MetricsEvent();
    }
}
BENCHMARK(EmplaceEvent);

void CopySixtyBytes(benchmark::State& state) {
    std::byte from[sizeof(MetricsEvent)] = {};
    std::byte to[sizeof(MetricsEvent)];
    for (auto _ : state) {
        benchmark::DoNotOptimize(from);
        std::copy(std::begin(from), std::end(from), to);
        benchmark::DoNotOptimize(to);
    }
}
BENCHMARK(CopySixtyBytes);

void CopyEvent(benchmark::State& state) {
    const MetricsEvent event = SampleEvent();
    for (auto _ : state) {
        MetricsEvent copy = event;
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(CopyEvent);

constexpr int kEventsPerBuffer = 1000;

MetricsValueBuffer EncodeEvents(const MetricsEvent& event) {
    MetricsValueBuffer buffer;
    buffer.AppendHeader();
    for (int i = 0; i < kEventsPerBuffer; ++i) event.Write(buffer);
    return buffer;
}

void EncodeThousandEvents(benchmark::State& state) {
    const MetricsEvent event = SampleEvent();
    for (auto _ : state) benchmark::DoNotOptimize(EncodeEvents(event));
    state.SetItemsProcessed(state.iterations() * kEventsPerBuffer);
}
BENCHMARK(EncodeThousandEvents);

void DecodeThousandEvents(benchmark::State& state) {
    const MetricsValueBuffer buffer = EncodeEvents(SampleEvent());
    MetricsEvent event;
    for (auto _ : state) {
        buffer.ReadHeader();
        for (int i = 0; i < kEventsPerBuffer; ++i) event.Read(buffer);
        benchmark::DoNotOptimize(event);
    }
    state.SetItemsProcessed(state.iterations() * kEventsPerBuffer);
}
BENCHMARK(DecodeThousandEvents);

}  // namespace
}  // namespace Metrics
