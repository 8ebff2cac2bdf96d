// One definition gives the same bytes, whether the rows are written live or from the XML of the same events.
#include <gtest/gtest.h>

#include "metrics/output/NestedWriter.h"
#include "metrics/output/TextWriter.h"
#include "metrics/output/XmlWriter.h"
#include "metrics/rows/ColumnSpec.h"
#include "tests/output/OutputFixture.h"
#include "tests/rows/RunRows.h"

namespace Metrics::Testing {
namespace {

using enum MetricsEventType;

// As an output drives it: what is there is handed on now and then.
std::string Live(const std::string& definition, const std::vector<MetricsEvent>& events, char separator) {
    std::ostringstream out;
    TextWriter table(out, separator, detail::SplitDefinition(definition));
    try {
        table.Begin();
        for (const MetricsEvent& event : events) {
            table.Write(event);
            if (event.Type() == ScopeClose) table.Flush();
        }
        table.End();
    } catch (const RowDefinitionError& error) {
        table.Flush();
        out << "! " << error.what() << '\n';
    }
    return out.str();
}

TEST(LiveTable, HeaderAndRowsComeAtOnceThoseOfASummaryWithTheEnd) {
    const struct {
        std::string definition, begun, flushed, ended;
    } tables[] = {{"[b|c]:x:r", "\"b|c\"\n", "\"b|c\"\n2.0\n", "\"b|c\"\n2.0\n"},
                  {"[n]:count(x)", "", "", "n\n1\n"}};
    for (const auto& [definition, begun, flushed, ended] : tables) {
        std::ostringstream out;
        TextWriter table(out, '|', {definition});
        table.Begin();
        EXPECT_EQ(out.str(), begun);
        table.Write(Value(1, "x", 2));
        table.Flush();
        EXPECT_EQ(out.str(), flushed);
        for (int ends = 0; ends < 2; ++ends) {
            table.End();
            EXPECT_EQ(out.str(), ended);
            table.Write(Value(1, "x", 2));
        }
    }
}

// The events twice, by one feed after another's end: as two roots come.
std::string LiveTwice(const std::string& definition, const std::vector<MetricsEvent>& events,
                      char separator) {
    std::ostringstream out;
    detail::LiveTable table(out, separator, detail::SplitDefinition(definition));
    detail::LiveRows rows(table.Reader());
    for (int root = 0; root < 2; ++root) {
        detail::Nesting nesting(nullptr);
        for (const MetricsEvent& event : events) nesting.Write(event, rows);
        rows.End();
    }
    table.End();
    return out.str();
}

std::string WrittenNested(const std::vector<MetricsEvent>& events) {
    std::ostringstream out;
    detail::NestedWriter<XmlWriter> writer(nullptr, out);
    writer.Begin();
    for (const MetricsEvent& event : events) writer.Write(event);
    writer.End();
    return out.str();
}

// Any events at all, odd names among them.
TEST(LiveTable, RandomEventsGiveTheSameBytesEitherWay) {
    const std::vector<MetricsValue> plain({EightCC("elapsed"), "s", "t", "time", "k"});
    const std::vector<MetricsValue> odd({"a b", "x/", "/x", "?p", "!d", "k=1", "k=\"", "a\"b", "\"q\"", "a.b",
                                         ">", "a>b", "<c", "", "it's", "a=\"b", "\">", "<!--", "-->"});
    const std::vector<MetricsValue> values({1, true, 2.5, "text", " pad ", "v\t<1>", "<&>\\", "", "a\nb",
                                            EightCC("code"), "]]>", "a,\"b|c", MetricsDateTime(kNoon)});
    const std::vector<const char*> definitions(
        {"path(time);time.elapsed:r;t?", "s..k;t.elapsed", "s;t", "linenum(s);nodenum(s);nodeend(s);id(s)",
         "linenum(t);path(t);t", "*", "path(*)", "ForceCloseContextDepth", "attr(*,\"k\");time", "a;t?",
         "attr(*,\"k\");*.t;linenum(*.t):i", "scopes(t,3);depth(t);t:d;rownum()",
         "[p]:pivotpath(s);[n]:count(elapsed);[s]:sum(elapsed);[m]:max(elapsed)",
         "[c]:#elapsed>0;nodename(elapsed,1);elapsed"});
    const MetricsEventType types[] = {ScopeOpen,        ScopeOpen,  ScopeClose, NameValue,
                                      DemuxSynthesized, ScopeValue, ScopeValue, ScopeValue};
    std::mt19937 random(12345);
    const auto pick = [&](std::size_t size) { return random() % size; };
    for (int round = 0; round < 5000; ++round) {
        std::vector<MetricsEvent> events;
        for (std::size_t i = pick(40); i > 0; --i) {
            // Rarely odd ones, so that something is left to read.
            const auto& names = round % 3 == 0 && pick(2) == 0 ? odd : plain;
            const MetricsEventType type = types[pick(std::size(types))];
            const MetricsValue depth = static_cast<int>(pick(6));
            events.push_back(Make(type, 1, type == DemuxSynthesized ? depth : names[pick(names.size())],
                                  values[pick(values.size())]));
        }
        const char* const definition = definitions[pick(definitions.size())];
        const char separator = pick(2) == 0 ? ',' : '|';
        const std::string live = Live(definition, events, separator);
        std::string read = RunRows(definition, WrittenNested(events), std::string::npos, true, separator);
        // A summary that ends in an error has no header live.
        if (live.starts_with("! ")) read = read.substr(read.find("! "));
        ASSERT_EQ(live, read) << definition;
        if (live.starts_with("! ") || Has(definition, "count(") || Has(definition, "rownum(")) continue;
        const std::string rows = live.substr(live.find('\n') + 1);
        ASSERT_EQ(LiveTwice(definition, events, separator), rows + rows) << definition;
    }
}

}  // namespace
}  // namespace Metrics::Testing
