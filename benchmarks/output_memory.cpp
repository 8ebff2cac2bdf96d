// What ten million contexts leave behind in an output that keeps up: resident memory after the first hundred
// thousand and at the end, in KiB, for each mode. The buffers are taken as they are finished.
#include <benchmark/benchmark.h>

#include <vector>

#include "metrics/output/NullStream.h"
#include "metrics/output/OutputState.h"
#include "tests/support/Memory.h"

namespace Metrics {
namespace {

using Mode = MetricsOutput::Mode;
using Format = MetricsOutput::Format;
using Type = MetricsEventType;

constexpr std::uint64_t kContextsPerBatch = 1000;

MetricsEvent Make(Type type, std::uint64_t context, MetricsValue first, MetricsValue second) {
    return MetricsEvent(Opaque64(MetricsEvent::PackHeader(type, 1, 0)), context, MetricsDateTime(1),
                        std::move(first), std::move(second));
}

// Roots and their children that are all open at the same time.
void FillBatch(std::vector<MetricsEvent>& batch, std::uint64_t first) {
    batch.clear();
    const std::uint64_t end = first + kContextsPerBatch;
    for (std::uint64_t id = first; id < end; id += 2) {
        batch.push_back(Make(Type::ContextCreate, 0, 0, id));
        batch.push_back(Make(Type::ContextConstruct, id, 0, id));
        batch.push_back(Make(Type::ContextCreate, id, id, id + 1));
    }
    for (std::uint64_t id = first; id < end; id += 2) {
        batch.push_back(Make(Type::ContextConstruct, id + 1, id, id + 1));
        batch.push_back(Make(Type::ScopeOpen, id + 1, MetricsValue::Ref("work"), 0));
        batch.push_back(Make(Type::ContextClose, id, 0, 0));
    }
    for (std::uint64_t id = first; id < end; id += 2) {
        batch.push_back(Make(Type::ScopeClose, id + 1, MetricsValue::Ref("work"), 0));
        batch.push_back(Make(Type::ContextClose, id + 1, 0, 0));
    }
}

void ContextsComeAndGo(benchmark::State& state, Mode mode, Format format) {
    const auto contexts = static_cast<std::uint64_t>(state.range(0));
    for (auto _ : state) {
        detail::OutputState output(detail::Core::Current(), mode, format);
        if (mode == Mode::Single) output.OpenStream(new basic_onullstream<char>, 0);
        std::vector<MetricsEvent> batch;
        for (std::uint64_t id = 1; id < contexts; id += kContextsPerBatch) {
            FillBatch(batch, id);
            output.ProcessBatch(batch);
            for (std::uint64_t taken = id; taken < id + kContextsPerBatch; taken += 2)
                output.TakeBuffer(taken);
            if (id < 100000) state.counters["KiB_early"] = static_cast<double>(Testing::ResidentKiB());
        }
        state.counters["KiB_late"] = static_cast<double>(Testing::ResidentKiB());
        output.CloseDown();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
constexpr auto Numbers = [](auto* benchmark) { benchmark->Arg(200000)->Arg(10000000)->Iterations(1); };
BENCHMARK_CAPTURE(ContextsComeAndGo, Borrowed, Mode::Borrowed, Format::Xml)->Apply(Numbers);
BENCHMARK_CAPTURE(ContextsComeAndGo, Single, Mode::Single, Format::Xml)->Apply(Numbers);
BENCHMARK_CAPTURE(ContextsComeAndGo, PerContext, Mode::PerContext, Format::Xml)->Apply(Numbers);
BENCHMARK_CAPTURE(ContextsComeAndGo, Buffers, Mode::PerContext, Format::Buffer)->Apply(Numbers);

}  // namespace
}  // namespace Metrics
