// One definition gives the same bytes, whether the rows are written live or from the XML of the same events.
#include "metrics/rows/TextTable.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "metrics/output/XmlWriter.h"
#include "metrics/rows/ColumnSpec.h"

namespace Metrics::detail {
namespace {

MetricsEvent Event(MetricsEventType type, MetricsValue first = {}, MetricsValue second = {}) {
    return {Opaque64(MetricsEvent::PackHeader(type, 0, 0)), 1, MetricsValue(), std::move(first),
            std::move(second)};
}
MetricsEvent Open(const MetricsValue& name) {
    return Event(MetricsEventType::ScopeOpen, name);
}
MetricsEvent Close(const MetricsValue& name) {
    return Event(MetricsEventType::ScopeClose, name);
}
MetricsEvent ValueOf(const MetricsValue& name, const MetricsValue& value) {
    return Event(MetricsEventType::ScopeValue, name, value);
}
MetricsEvent Named(const MetricsValue& name, const MetricsValue& value) {
    return Event(MetricsEventType::NameValue, name, value);
}

using Events = std::vector<MetricsEvent>;

std::string Live(const std::string& definition, const Events& events) {
    std::ostringstream out;
    try {
        TextTable table(out, ',', SplitDefinition(definition));
        try {
            table.Begin();
            for (const MetricsEvent& event : events) table.Write(event);
            table.End();
        } catch (const RowDefinitionError& error) {
            table.Flush();
            return out.str() + "! " + error.what();
        }
    } catch (const RowDefinitionError& error) {
        return error.what();
    }
    return out.str();
}

std::string FromXml(const std::string& definition, const Events& events) {
    std::ostringstream xml;
    XmlWriter writer(xml);
    for (const MetricsEvent& event : events) writer.Write(event);
    writer.End();

    std::string out;
    StreamingXml::XmlParser parser(
        [&](StreamingXml::XmlParser& row) { row.AppendRow(out, ',', row.IsSummary()); });
    parser.Compile(definition);
    std::string header;
    AppendHeader(header, parser.Columns(parser.IsSummary()), ',');
    try {
        parser.Feed(xml.str());
        parser.End();
    } catch (const RowDefinitionError& error) {
        return header + out + "! " + error.what();
    }
    return header + out;
}

TEST(TextTable, WritesTheHeaderFirstAndRowsAsTheyComplete) {
    std::ostringstream out;
    TextTable table(out, '|', {"a.x", "[b|c]:a.y:r"});
    table.Begin();
    EXPECT_EQ(out.str(), "a.x|\"b|c\"\n");
    for (const auto& event : {Open("a"), ValueOf("x", "t|u"), ValueOf("y", 2), Close("a")})
        table.Write(event);
    table.Flush();
    EXPECT_EQ(out.str(), "a.x|\"b|c\"\n\"t|u\"|2.0\n");
    EXPECT_EQ(table.Columns().size(), 2U);
    EXPECT_EQ(table.Columns()[1].type, ColumnType::Real);
}

TEST(TextTable, ASummaryComesWithTheEnd) {
    std::ostringstream out;
    TextTable table(out, ',', {"[n]:count(x)"});
    table.Begin();
    table.Write(ValueOf("x", 1));
    table.Flush();
    EXPECT_EQ(out.str(), "");
    table.End();
    EXPECT_EQ(out.str(), "n\n1\n");
    table.Write(ValueOf("x", 1));
    table.End();
    EXPECT_EQ(out.str(), "n\n1\n") << "the table has ended";
}

TEST(TextTable, NamesThatXmlReadsOtherwise) {
    const Events events = {
        Open("my part"), Named("k k", "v\t<1>"), Open("s"),        ValueOf("x", " a\\b\n "),
        Close("s"),      ValueOf("x/", 5),       ValueOf("", 1),   Open("<!--"),
        ValueOf("x", 7), ValueOf("-->", 8),      Open("a=\"b"),    Open("\">"),
        Close("close"),  ValueOf("x", 9),        Close("my part"),
    };
    for (const char* definition : {"my", "s.x;attr(s,\"k\")", "path(x);x", "x", "linenum(x);x", "my;s.x?"})
        EXPECT_EQ(Live(definition, events), FromXml(definition, events)) << definition;
}

TEST(TextTable, ForcedClosureClosesWhatIsOpen) {
    const Events events = {Open("a"),
                           Open("b"),
                           ValueOf("x", 1),
                           Named("lost", 1),
                           Event(MetricsEventType::DemuxSynthesized, 5),
                           Open("c"),
                           ValueOf("x", 2),
                           Event(MetricsEventType::DemuxSynthesized, 0),
                           ValueOf("y", 3),
                           Close("c"),
                           Close("c")};
    for (const char* definition : {"path(x);x", "path(*)", "ForceCloseContextDepth", "linenum(x);linenum(y)"})
        EXPECT_EQ(Live(definition, events), FromXml(definition, events)) << definition;
}

// Any events at all, odd names among them.
TEST(TextTable, RandomEventsGiveTheSameBytesEitherWay) {
    const std::vector<MetricsValue> names = {"s",    "t",    EightCC("elapsed"),
                                             "time", "a b",  "x/",
                                             "/x",   "?p",   "!d",
                                             "k=1",  "k=\"", "\"q\"",
                                             "a.b",  ">",    "a>b",
                                             "<c",   "",     "it's"};
    const std::vector<MetricsValue> values = {1,       true, 2.5,    "text",          " pad ",
                                              "<&>\\", "",   "a\nb", EightCC("code"), "]]>"};
    const char* const definitions[] = {
        "path(time);time.elapsed:r;t?",
        "s..k;t.elapsed",
        "s;t",
        "linenum(s);nodenum(s);nodeend(s);id(s)",
        "*",
        "attr(*,\"k\");time",
        "[p]:pivotpath(s);[n]:count(elapsed);[s]:sum(elapsed)",
        "[c]:#elapsed>0;nodename(elapsed,1);elapsed",
    };
    std::mt19937 random(12345);
    const auto pick = [&](std::size_t size) { return random() % size; };
    for (int round = 0; round < 3000; ++round) {
        // Mostly plain names, so that something is left to read after the odd ones.
        const std::size_t known = round % 3 == 0 ? names.size() : 4;
        Events events;
        for (std::size_t i = pick(40); i > 0; --i) {
            const MetricsValue& name = names[pick(known)];
            switch (pick(8)) {
                case 0:
                case 1: events.push_back(Open(name)); break;
                case 2: events.push_back(Close(name)); break;
                case 3:
                    events.push_back(Named(pick(2) ? MetricsValue("k") : name, values[pick(values.size())]));
                    break;
                case 4:
                    events.push_back(Event(MetricsEventType::DemuxSynthesized, static_cast<int>(pick(3))));
                    break;
                default: events.push_back(ValueOf(name, values[pick(values.size())]));
            }
        }
        const char* const definition = definitions[pick(std::size(definitions))];
        const std::string live = Live(definition, events), read = FromXml(definition, events);
        // A summary that ends in an error has no header live.
        if (live.starts_with("!") || read.find("! ") != std::string::npos) {
            EXPECT_EQ(live.substr(live.find("! ")), read.substr(read.find("! "))) << definition;
        } else {
            EXPECT_EQ(live, read) << definition;
        }
        if (HasFailure()) break;
    }
}

}  // namespace
}  // namespace Metrics::detail
