// One definition gives the same bytes, whether the rows are written live or from the XML of the same events.
#include "metrics/rows/TextTable.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "metrics/output/XmlWriter.h"
#include "metrics/rows/ColumnSpec.h"
#include "tests/rows/RunRows.h"

namespace Metrics::detail {
namespace {

using enum MetricsEventType;

MetricsEvent Event(MetricsEventType type, MetricsValue first, MetricsValue second = {}) {
    return {Opaque64(MetricsEvent::PackHeader(type, 0, 0)), 1, MetricsValue(), std::move(first),
            std::move(second)};
}

std::string Live(const std::string& definition, const std::vector<MetricsEvent>& events) {
    std::ostringstream out;
    TextTable table(out, ',', SplitDefinition(definition));
    try {
        table.Begin();
        for (const MetricsEvent& event : events) table.Write(event);
        table.End();
    } catch (const RowDefinitionError& error) {
        table.Flush();
        out << "! " << error.what() << '\n';
    }
    return out.str();
}

std::string FromXml(const std::string& definition, const std::vector<MetricsEvent>& events) {
    std::ostringstream xml;
    XmlWriter writer(xml);
    for (const MetricsEvent& event : events) writer.Write(event);
    writer.End();
    return RunRows(definition, xml.str(), std::string::npos, true);
}

TEST(TextTable, WritesTheHeaderFirstAndRowsAsTheyComplete) {
    std::ostringstream out;
    TextTable table(out, '|', {"[b|c]:x:r"});
    table.Begin();
    EXPECT_EQ(out.str(), "\"b|c\"\n");
    table.Write(Event(ScopeValue, "x", 2));
    table.Flush();
    EXPECT_EQ(out.str(), "\"b|c\"\n2.0\n");
}

TEST(TextTable, ASummaryComesWithTheEnd) {
    std::ostringstream out;
    TextTable table(out, ',', {"[n]:count(x)"});
    table.Begin();
    table.Write(Event(ScopeValue, "x", 1));
    table.Flush();
    EXPECT_EQ(out.str(), "");
    for (int ends = 0; ends < 2; ++ends) {
        table.End();
        EXPECT_EQ(out.str(), "n\n1\n");
        table.Write(Event(ScopeValue, "x", 1));
    }
}

// Any events at all, odd names among them.
TEST(TextTable, RandomEventsGiveTheSameBytesEitherWay) {
    const std::vector<MetricsValue> plain = {EightCC("elapsed"), "s", "t", "time", "k"};
    const std::vector<MetricsValue> odd = {"a b",  "x/",    "/x",  "?p",   "!d",  "k=1", "k=\"",
                                           "a\"b", "\"q\"", "a.b", ">",    "a>b", "<c",  "",
                                           "it's", "a=\"b", "\">", "<!--", "-->"};
    const std::vector<MetricsValue> values = {1,       true, 2.5,    "text",          " pad ", "v\t<1>",
                                              "<&>\\", "",   "a\nb", EightCC("code"), "]]>"};
    const char* const definitions[] = {
        "path(time);time.elapsed:r;t?",
        "s..k;t.elapsed",
        "s;t",
        "linenum(s);nodenum(s);nodeend(s);id(s)",
        "linenum(t);path(t);t",
        "*",
        "path(*)",
        "ForceCloseContextDepth",
        "attr(*,\"k\");time",
        "a;t?",
        "[p]:pivotpath(s);[n]:count(elapsed);[s]:sum(elapsed)",
        "[c]:#elapsed>0;nodename(elapsed,1);elapsed",
    };
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
            events.push_back(Event(type, type == DemuxSynthesized ? depth : names[pick(names.size())],
                                   values[pick(values.size())]));
        }
        const char* const definition = definitions[pick(std::size(definitions))];
        const std::string live = Live(definition, events);
        std::string read = FromXml(definition, events);
        // A summary that ends in an error has no header live.
        if (live.starts_with("! ")) read = read.substr(read.find("! "));
        ASSERT_EQ(live, read) << definition;
    }
}

}  // namespace
}  // namespace Metrics::detail
