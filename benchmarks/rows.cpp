// What rows cost: compiling a definition, reading XML with none to sixteen columns, groups, live tables, and
// the schema.ini that describes many of them.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <ostream>

#include "metrics/MetricsEvent.h"
#include "metrics/output/NullStream.h"
#include "metrics/reader/XmlScanner.h"
#include "metrics/rows/ColumnSpec.h"
#include "metrics/rows/LiveRows.h"
#include "metrics/rows/LiveTable.h"
#include "metrics/rows/RowReader.h"
#include "metrics/rows/SchemaFile.h"

namespace {

using namespace Metrics;
using namespace Metrics::detail;

// About one MiB of what an output writes; `groups` different names.
std::string MakeXml(int groups) {
    std::string xml;
    for (int i = 0; xml.size() < 1 << 20; ++i) {
        const std::string number = std::to_string(i);
        xml += "  <parse file=\"data/" + number + ".txt\">\n    <elapsed>0.00" + number +
               "</elapsed>\n    <cpu>0.00" + number + "</cpu>\n    <mem>" + number + "</mem>\n    <kind>" +
               std::to_string(i % groups) +
               "</kind>\n    <read>\n      <elapsed>0.1</elapsed>\n      <bytes>" + number +
               "</bytes>\n    </read>\n  </parse>\n";
    }
    return xml;
}

// The columns that a benchmark takes the first few of.
const std::vector<std::string> kColumns = {"attr(parse,\"file\")",
                                           "parse.elapsed:r",
                                           "parse.read.elapsed:r",
                                           "parse.mem:i",
                                           "parse.cpu:r",
                                           "parse.kind",
                                           "depth(parse)",
                                           "nodenum(parse)",
                                           "path(parse)",
                                           "parse.read.bytes:i",
                                           "[a]:parse.mem*2",
                                           "[b]:parse.elapsed--parse.cpu",
                                           "[c]:parse.mem>10",
                                           "id(parse)",
                                           "[d]:round(parse.elapsed,3)",
                                           "rownum()"};

CompiledRow Compile(const std::vector<std::string>& columns) {
    CompiledRow row;
    CompileRow(columns, row);
    return row;
}

// Reads the same megabyte so many times, as one input, and counts what comes out as CSV.
std::size_t ReadXml(const CompiledRow& row, const std::string& xml, std::int64_t times) {
    std::string lines;
    std::size_t written = 0;
    RowReader* current = nullptr;
    RowReader reader(row, [&] {
        current->AppendCurrent(lines, ',', true);
        if (lines.size() < 65536) return;
        written += lines.size();
        lines.clear();
    });
    current = &reader;
    RowEngine engine(row, reader, reader.Notices());
    StreamingXml::XmlScanner scanner(engine);
    for (std::int64_t i = 0; i < times; ++i)
        for (std::size_t at = 0; at < xml.size(); at += 65536)
            scanner.Feed(std::string_view(xml).substr(at, 65536));
    engine.Finish();
    reader.GiveGroups();
    return written + lines.size();
}

void CompileDefinition(benchmark::State& state) {
    const std::vector<std::string> columns(kColumns.begin(), kColumns.begin() + state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(Compile(columns));
}
BENCHMARK(CompileDefinition)->Arg(1)->Arg(4)->Arg(16);

void ReadColumns(benchmark::State& state) {
    const CompiledRow row = Compile({kColumns.begin(), kColumns.begin() + state.range(0)});
    const std::string xml = MakeXml(10);
    for (auto _ : state) benchmark::DoNotOptimize(ReadXml(row, xml, state.range(1)));
    state.SetBytesProcessed(state.iterations() * state.range(1) * static_cast<std::int64_t>(xml.size()));
}
BENCHMARK(ReadColumns)->ArgsProduct({{0, 1, 4, 16}, {1, 100}})->Unit(benchmark::kMillisecond);

void ReadGroups(benchmark::State& state) {
    const CompiledRow row = Compile({"parse.kind", "[n]:count(parse.mem)", "[s]:sum(parse.elapsed)"});
    const std::string xml = MakeXml(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(ReadXml(row, xml, 20));
    state.SetBytesProcessed(state.iterations() * 20 * static_cast<std::int64_t>(xml.size()));
}
BENCHMARK(ReadGroups)->Arg(10)->Arg(100000)->Unit(benchmark::kMillisecond);

void WriteRows(benchmark::State& state) {
    const CompiledRow row = Compile({"x", "attr(x,\"a\"):i", "[y]:x:r"});
    std::string xml;
    for (int i = 0; i < 10000; ++i) xml += "<x a='5'>1.25</x>";
    for (auto _ : state) benchmark::DoNotOptimize(ReadXml(row, xml, 1));
    state.SetItemsProcessed(state.iterations() * 10000);
}
BENCHMARK(WriteRows);

void WriteLiveTable(benchmark::State& state) {
    const auto event = [](MetricsEventType type, MetricsValue first, MetricsValue second = {}) {
        return MetricsEvent(Opaque64(MetricsEvent::PackHeader(type, 0, 0)), 1, MetricsValue(),
                            std::move(first), std::move(second));
    };
    const MetricsEvent events[] = {event(MetricsEventType::ScopeOpen, "parse"),
                                   event(MetricsEventType::ScopeValue, EightCC("elapsed"), 0.000125),
                                   event(MetricsEventType::ScopeValue, EightCC("user"), 0.0001),
                                   event(MetricsEventType::ScopeClose, "parse")};
    basic_onullstream<char> out;
    LiveTable table(out, ',', {"path(parse)", "parse.elapsed:r", "parse.user:r"});
    table.Begin();
    LiveRows rows(table.Reader());
    for (auto _ : state)
        for (const MetricsEvent& next : events) rows.Write(next);
    state.SetItemsProcessed(state.iterations() * 4);
}
BENCHMARK(WriteLiveTable);

// So many tables in one folder: first none is described, then (again) all are.
void DescribeTables(benchmark::State& state, bool again) {
    namespace fs = std::filesystem;
    const fs::path folder = fs::temp_directory_path() / "metrics-benchmark-schema";
    const std::vector<StreamingXml::XmlColumnInfo> columns{
        {"stage", ColumnType::String}, {"elapsed", ColumnType::Real}, {"bytes", ColumnType::Integer}};
    const std::string entries = SchemaEntries(columns, ',');
    const auto describe = [&] {
        for (int i = 0; i < state.range(0); ++i) {
            const TableSchema table{(folder / ("life-" + std::to_string(i) + ".csv")).string(), entries};
            WriteSchemas({&table, 1});
        }
    };
    for (auto _ : state) {
        state.PauseTiming();
        fs::remove_all(folder);
        fs::create_directories(folder);
        if (again) describe();
        state.ResumeTiming();
        describe();
    }
    fs::remove_all(folder);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(DescribeTables, New, false)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(DescribeTables, Again, true)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace
