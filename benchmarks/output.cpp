// From delivered batches to bytes in files: how many events a second an output takes, by format and by how
// many contexts are open at once. The floor is the same fields converted with std::to_chars into memory and
// written in blocks. Files go to the system's folder for temporary files; with 10,000 files open at once the
// descriptor limit has to be raised first (ulimit -n 20000).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "metrics/Session.h"
#include "metrics/output/OutputState.h"

namespace Metrics {
namespace {

using Mode = MetricsOutput::Mode;
using Format = MetricsOutput::Format;
using Batch = std::vector<MetricsEvent>;

constexpr std::size_t kBatch = 65536;

MetricsEvent Make(MetricsEventType type, std::uint64_t context, MetricsValue first, MetricsValue second,
                  std::size_t sequence = 0) {
    static std::uint64_t count = 0;
    ++count;
    const MetricsDateTime time(2456390ULL * 864000000ULL + count / 100);  // a million events a second
    return MetricsEvent(Opaque64(MetricsEvent::PackHeader(type, 7, static_cast<std::uint32_t>(sequence))),
                        context, time, std::move(first), std::move(second));
}

// What `contexts` roots do that are open at the same time and take turns at each event: they open, work (a
// batch to be repeated), and close.
struct Lives {
    explicit Lives(std::uint64_t contexts) {
        using Type = MetricsEventType;
        for (std::uint64_t id = 1; id <= contexts; ++id) open.push_back(Make(Type::ContextCreate, 0, 0, id));
        for (std::uint64_t id = 1; id <= contexts; ++id) {
            open.push_back(Make(Type::ContextConstruct, id, 0, id));
            close.push_back(Make(Type::ContextClose, id, 0, 0));
        }
        for (std::size_t round = 0; work.size() < kBatch - 6 * contexts; ++round) {
            const auto each = [&](Type type, const MetricsValue& first, const MetricsValue& second) {
                for (std::uint64_t id = 1; id <= contexts; ++id)
                    work.push_back(Make(type, id, first, second, round));  // a closing repeats its opening's
            };
            each(Type::NameValue, MetricsValue::Ref("file"), MetricsValue::Ref("/usr/include/stdio.h"));
            each(Type::ScopeOpen, MetricsValue::Ref("parse"), 0);
            each(Type::ScopeValue, EightCC("elapsed"), 0.25 * static_cast<double>(round));
            each(Type::ScopeValue, MetricsValue::Ref("bytes"), 123456 + round);
            each(Type::ScopeValue, FourCC("line"), round);
            each(Type::ScopeClose, MetricsValue::Ref("parse"), 0);
        }
    }

    Batch open;
    Batch work;
    Batch close;
};

class Folder {
  public:
    Folder() { std::filesystem::create_directories(path_); }
    ~Folder() { std::filesystem::remove_all(path_); }
    std::string operator/(const char* name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_ = std::filesystem::temp_directory_path() / "metrics-benchmark-output";
};

// Each life works for as many batches as the second argument says.
void Run(benchmark::State& state, Mode mode, Format format) {
    const Lives lives(static_cast<std::uint64_t>(state.range(0)));
    const Folder folder;
    detail::OutputState output(detail::Core::Current(), mode, format);
    const std::string pattern = folder / "life-*";
    if (mode == Mode::PerContext && format != Format::Buffer) output.SetWildcard(pattern);
    if (mode == Mode::Single) output.OpenFile(folder / "all", 0);
    for (auto _ : state) {
        output.ProcessBatch(lives.open);
        for (std::int64_t left = state.range(1); left != 0; --left) output.ProcessBatch(lives.work);
        output.ProcessBatch(lives.close);
    }
    const auto work = static_cast<std::int64_t>(lives.work.size()) * state.range(1);
    state.SetItemsProcessed(work * state.iterations());
    output.CloseDown();
    if (!output.Errors().empty()) state.SkipWithError(output.Errors().front().c_str());
}

char* AppendField(char* at, const MetricsValue& value) {
    switch (value.Kind()) {
        case MetricsValueType::Double:
            return std::to_chars(at, at + 64, value.AsDouble(), std::chars_format::fixed, 6).ptr;
        case MetricsValueType::StringRef: {
            const std::string_view text = value.Text();
            return at + text.copy(at, text.size());
        }
        default: return std::to_chars(at, at + 64, value.AsUInt64()).ptr;
    }
}

void Floor(benchmark::State& state) {
    const Batch work = Lives(1).work;
    const Folder folder;
    std::ofstream file;
    file.rdbuf()->pubsetbuf(nullptr, 0);
    file.open(folder / "floor");
    std::vector<char> block(65536 + 1024);
    for (auto _ : state) {
        char* at = block.data();
        for (const MetricsEvent& event : work) {
            at = AppendField(at, event.timestamp);
            *at++ = ',';
            at = AppendField(at, event.contextId);
            *at++ = ',';
            at = std::to_chars(at, at + 16, event.ComponentId()).ptr;
            *at++ = ',';
            at = std::to_chars(at, at + 16, static_cast<unsigned>(event.Type())).ptr;
            *at++ = ',';
            at = AppendField(at, event.param1);
            *at++ = ',';
            at = AppendField(at, event.param2);
            *at++ = '\n';
            if (at - block.data() < 65536) continue;
            file.write(block.data(), at - block.data());
            at = block.data();
        }
        file.write(block.data(), at - block.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(work.size()) * state.iterations());
}
BENCHMARK(Floor);

// In Single the events of all but one context have to wait until that one ends, so lives are short there.
constexpr auto InTurn = [](auto* benchmark) {
    benchmark->ArgNames({"contexts", "batches"})->Args({1, 1})->Args({100, 1})->Args({10000, 1});
};
constexpr auto SideBySide = [](auto* benchmark) {
    benchmark->ArgNames({"contexts", "batches"})->Args({1, 1})->Args({100, 20})->Args({10000, 100});
};
BENCHMARK_CAPTURE(Run, RawUnordered_Single, Mode::Single, Format::RawUnordered)->Apply(InTurn);
BENCHMARK_CAPTURE(Run, Raw_Single, Mode::Single, Format::Raw)->Apply(InTurn);
BENCHMARK_CAPTURE(Run, Raw_PerContext, Mode::PerContext, Format::Raw)->Apply(SideBySide);
BENCHMARK_CAPTURE(Run, Xml_Single, Mode::Single, Format::Xml)->Apply(InTurn);
BENCHMARK_CAPTURE(Run, Xml_PerContext, Mode::PerContext, Format::Xml)->Apply(SideBySide);
BENCHMARK_CAPTURE(Run, Buffer_PerContext, Mode::PerContext, Format::Buffer)->Apply(SideBySide);

// The whole way from the manager's queue, in which a life of as many batches waits as the second argument
// says, until all of it is in the file or in buffers.
void QueueToFile(benchmark::State& state, Mode mode, Format format) {
    const Lives lives(static_cast<std::uint64_t>(state.range(0)));
    const Folder folder;
    Session session;
    MetricsManager& manager = MetricsManager::GetInstance();
    const std::shared_ptr<detail::Core> core = detail::Core::Current();
    MetricsOutput output(mode, format);
    output.SetRowDefinition("path(parse);parse.elapsed:r;parse.bytes:i;parse.line:i");
    if (mode == Mode::Single) output.OpenFile(folder / "all", 0);
    for (auto _ : state) {
        manager.SetState(MetricsManager::Collecting, false);
        const auto post = [&](const Batch& batch) {
            for (const MetricsEvent& event : batch) core->Post(MetricsEvent(event));
        };
        post(lives.open);
        for (std::int64_t left = state.range(1); left != 0; --left) post(lives.work);
        post(lives.close);
        const auto start = std::chrono::steady_clock::now();
        manager.SetState(MetricsManager::Collecting, true);
        output.Flush();
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(passed.count());
    }
    const auto work = static_cast<std::int64_t>(lives.work.size()) * state.range(1);
    const auto events = work + static_cast<std::int64_t>(lives.open.size() + lives.close.size());
    state.SetItemsProcessed(events * state.iterations());
    if (output.HasError()) state.SkipWithError(output.GetErrors().front().c_str());
}
BENCHMARK_CAPTURE(QueueToFile, RawUnordered, Mode::Single, Format::RawUnordered)
    ->Apply(InTurn)
    ->UseManualTime();
BENCHMARK_CAPTURE(QueueToFile, Raw, Mode::Single, Format::Raw)->Apply(InTurn)->UseManualTime();
BENCHMARK_CAPTURE(QueueToFile, Xml, Mode::Single, Format::Xml)->Apply(InTurn)->UseManualTime();
BENCHMARK_CAPTURE(QueueToFile, Buffer, Mode::PerContext, Format::Buffer)
    ->ArgNames({"contexts", "batches"})
    ->Args({1, 1})
    ->Args({100, 1})
    ->Args({10000, 10})
    ->UseManualTime();
BENCHMARK_CAPTURE(QueueToFile, Csv, Mode::Single, Format::CsvComma)->Apply(InTurn)->UseManualTime();

// Asking for what is written when nothing is: what a host waits that finishes its outputs now and then.
void Finish(benchmark::State& state) {
    Session session;
    MetricsOutput output(Mode::PerContext, Format::Xml);
    std::vector<double> times;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        output.Finish(0);
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(passed.count());
        times.push_back(passed.count() * 1e6);
    }
    std::sort(times.begin(), times.end());
    state.counters["p50_us"] = times[times.size() / 2];
    state.counters["p99_us"] = times[times.size() * 99 / 100];
    state.counters["max_us"] = times.back();
}
BENCHMARK(Finish)->UseManualTime();

}  // namespace
}  // namespace Metrics
