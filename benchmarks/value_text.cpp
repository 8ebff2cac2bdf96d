// Values as text, kind by kind with the flags of the line writer, and a whole line of five values beside the
// same fields written by std::to_chars alone.
#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdint>
#include <string_view>

#include "metrics/values/ValueText.h"

namespace Metrics {
namespace {

constexpr unsigned kLineFlags = MetricsValue::EscapeNewlines | MetricsValue::AlwaysQuote;
constexpr std::uint64_t kMidnight = 2456390 * MetricsDateTime::scaling;

template <typename Make>
void Text(benchmark::State& state, unsigned flags, Make make) {
    const MetricsValue value = make();
    detail::DateTimeText times;
    detail::TextBuffer out;
    for (auto _ : state) {
        out.Clear();
        detail::AppendText(out, value, flags, times);
        benchmark::DoNotOptimize(out.View());
    }
}
BENCHMARK_CAPTURE(Text, integer, kLineFlags, [] { return MetricsValue(123456); });
BENCHMARK_CAPTURE(Text, seconds, kLineFlags, [] { return MetricsValue(0.001234); });
BENCHMARK_CAPTURE(Text, lowestDouble, kLineFlags, [] { return MetricsValue(-1.7e308); });
BENCHMARK_CAPTURE(Text, fourCC, kLineFlags, [] { return MetricsValue(FourCC("time")); });
BENCHMARK_CAPTURE(Text, eightCC, kLineFlags, [] { return MetricsValue(EightCC("elapsed")); });
BENCHMARK_CAPTURE(Text, shortText, kLineFlags, [] { return MetricsValue::Ref("read file"); });
BENCHMARK_CAPTURE(Text, pathText, kLineFlags,
                  [] { return MetricsValue::Ref("/home/user/projects/metrics/values/MetricsValue.cpp"); });
BENCHMARK_CAPTURE(Text, pathXml, MetricsValue::XmlEscape,
                  [] { return MetricsValue::Ref("/home/user/projects/metrics/values/MetricsValue.cpp"); });
BENCHMARK_CAPTURE(Text, sameSecond, 0U, [] { return MetricsValue(MetricsDateTime(kMidnight)); });

void TextOfNewSecond(benchmark::State& state) {
    detail::DateTimeText times;
    detail::TextBuffer out;
    std::uint64_t ticks = kMidnight;
    for (auto _ : state) {
        out.Clear();
        detail::AppendText(out, MetricsDateTime(ticks += MetricsDateTime::subsecond_res), 0, times);
        benchmark::DoNotOptimize(out.View());
    }
}
BENCHMARK(TextOfNewSecond);

struct Line {
    std::int64_t seconds = 65000;
    std::uint64_t context = 42;
    std::uint64_t component = 1;
    std::uint64_t type = 10;
    const char* name = "read the file";
    std::int64_t value = 1234567;
};

// The floor: the same fields one by one into memory that is there.
void LineByToChars(benchmark::State& state) {
    Line fields;
    char line[256];
    char* at = nullptr;
    const auto text = [&](std::string_view field) { at += field.copy(at, field.size()); };
    const auto number = [&](auto field) { at = std::to_chars(at, at + 24, field).ptr; };
    const auto twoDigits = [&](std::int64_t field) {
        if (field < 10) *at++ = '0';
        number(field);
    };
    for (auto _ : state) {
        benchmark::DoNotOptimize(fields);
        at = line;
        text("2013-04-08 ");
        twoDigits(fields.seconds / 3600);
        text(":");
        twoDigits(fields.seconds / 60 % 60);
        text(":");
        twoDigits(fields.seconds % 60);
        for (const std::uint64_t field : {fields.context, fields.component, fields.type}) {
            text(",");
            number(field);
        }
        text(",\"");
        text(fields.name);
        text("\",\"");
        number(fields.value);
        text("\"\n");
        benchmark::DoNotOptimize(at);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(LineByToChars);

void LineByAppendText(benchmark::State& state) {
    Line fields;
    detail::TextBuffer line;
    detail::DateTimeText times;
    const auto append = [&](const MetricsValue& value, unsigned flags, char separator) {
        detail::AppendText(line, value, flags, times);
        line.Append(separator);
    };
    for (auto _ : state) {
        benchmark::DoNotOptimize(fields);
        line.Clear();
        append(MetricsDateTime(kMidnight + static_cast<std::uint64_t>(fields.seconds) * 10000), 0, ',');
        for (const std::uint64_t field : {fields.context, fields.component, fields.type}) {
            line.AppendNumber(field);
            line.Append(',');
        }
        append(MetricsValue::Ref(fields.name), kLineFlags, ',');
        append(fields.value, kLineFlags, '\n');
        benchmark::DoNotOptimize(line.View());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(LineByAppendText);

}  // namespace
}  // namespace Metrics
