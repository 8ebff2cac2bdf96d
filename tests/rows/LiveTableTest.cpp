// One definition gives the same bytes, whether the rows are written live or from the XML of the same events.
#include <gtest/gtest.h>

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
        for (const MetricsEvent& event : events) rows.Write(event);
        rows.End();
    }
    table.End();
    return out.str();
}

// Each root's nodes and lines count from 1; the rows' numbers and the groups are the table's.
TEST(LiveTable, HasOneOfEverythingForTheFeedsOfManyRoots) {
    std::ostringstream out;
    detail::LiveTable table(out, ',', {"rownum()", "*.v", "nodenum(*.v)", "linenum(*.v)", "id(*.v)"});
    table.Begin();
    std::deque<detail::LiveRows> roots;
    for (int root = 0; root < 2; ++root) roots.emplace_back(table.Reader());
    for (int value = 0; value < 2; ++value)
        for (int root = 0; root < 2; ++root) {
            roots[root].Write(OpenScope(root, "a"));
            roots[root].Write(Value(root, "v", 10 * root + value));
            if (root == 1) roots[root].Write(CloseScope(root, "a"));
        }
    for (detail::LiveRows& root : roots) root.End();
    table.End();
    EXPECT_EQ(out.str(),
              "rownum(),*.v,nodenum(*.v),linenum(*.v),id(*.v)\n1,0,2,2,1.2\n2,10,2,2,1.2\n3,1,4,4,1.3.4\n"
              "4,11,4,5,3.4\n");
    EXPECT_EQ(LiveTwice("v;[n]:count(v)", {Value(1, "v", 1), Value(1, "v", 2)}, ','), "v,n\n1,2\n2,2\n");
}

// Any events at all, odd names among them.
TEST(LiveTable, RandomEventsGiveTheSameBytesEitherWay) {
    const std::vector<MetricsValue> plain = {EightCC("elapsed"), "s", "t", "time", "k"};
    const std::vector<MetricsValue> odd = {"a b",  "x/",    "/x",  "?p",   "!d",  "k=1", "k=\"",
                                           "a\"b", "\"q\"", "a.b", ">",    "a>b", "<c",  "",
                                           "it's", "a=\"b", "\">", "<!--", "-->"};
    const std::vector<MetricsValue> values = {1,
                                              true,
                                              2.5,
                                              "text",
                                              " pad ",
                                              "v\t<1>",
                                              "<&>\\",
                                              "",
                                              "a\nb",
                                              EightCC("code"),
                                              "]]>",
                                              "a,\"b|c",
                                              MetricsDateTime(kNoon)};
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
        "attr(*,\"k\");*.t;linenum(*.t):i",
        "scopes(t,3);depth(t);t:d;rownum()",
        "[p]:pivotpath(s);[n]:count(elapsed);[s]:sum(elapsed);[m]:max(elapsed)",
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
            events.push_back(Make(type, 1, type == DemuxSynthesized ? depth : names[pick(names.size())],
                                  values[pick(values.size())]));
        }
        const char* const definition = definitions[pick(std::size(definitions))];
        const char separator = pick(2) == 0 ? ',' : '|';
        const std::string live = Live(definition, events, separator);
        std::string read =
            RunRows(definition, Written<XmlWriter>(events), std::string::npos, true, separator);
        // A summary that ends in an error has no header live.
        if (live.starts_with("! ")) read = read.substr(read.find("! "));
        ASSERT_EQ(live, read) << definition;
        if (live.starts_with("! ") || Has(definition, "count(") || Has(definition, "rownum(")) continue;
        const std::string rows = live.substr(live.find('\n') + 1);
        ASSERT_EQ(LiveTwice(definition, events, separator), rows + rows) << definition;
    }
}

std::string WrittenBy(Format format, const std::string& definition, const std::vector<MetricsEvent>& events) {
    Output output(Mode::Borrowed, format);
    output.SetRowDefinition(definition);
    const std::ostringstream& written = output.Listen(1);
    output.PutInPieces(events, 7);
    output.CloseDown();
    EXPECT_EQ(output.Errors(), Briefs());
    return written.str();
}

TEST(TableOutput, OneDefinitionGivesTheSameBytesLiveFromXmlAndFromABuffer) {
    // The child and one scope of the root are never closed.
    const std::vector<MetricsEvent> run = {Create(0, 1),
                                           Construct(0, 1),
                                           Attribute(1, "path", "a,\"b\" & <c>\n|d"),
                                           OpenScope(1, "file"),
                                           OpenScope(1, "read stage"),
                                           Value(1, "bytes", 17),
                                           OpenScope(1, "time"),
                                           Value(1, "elapsed", 0.25),
                                           Value(1, "enter", MetricsDateTime(kNoon)),
                                           CloseScope(1, "time"),
                                           CloseScope(1, "read stage"),
                                           Create(1, 2),
                                           Construct(1, 2),
                                           Attribute(2, "path", "child"),
                                           OpenScope(2, "merge"),
                                           OpenScope(2, "time"),
                                           Value(2, "elapsed", 1.5),
                                           CloseScope(2, "time"),
                                           Value(1, "note", "tab\tand \\ backslash"),
                                           OpenScope(1, "left open"),
                                           Value(1, "bytes", 3),
                                           Close(1)};
    const std::string xml = WrittenBy(Format::Xml, "", run);
    Output buffering(Mode::Borrowed, Format::Buffer);
    buffering.OpenStream(nullptr, 1);
    buffering.Put(run);
    buffering.CloseDown();
    EXPECT_EQ(xml, Written<XmlWriter>(ReadEvents(*buffering.FindBuffer(1))));
    for (const char* definition : {
             "[path]:attr(file,\"path\");[stage]:path(time);[seconds]:time.elapsed:r:3",
             "attr(*,\"path\");*.note;linenum(*.note):i",
             "[s]:pivotpath(time);[n]:count(time.elapsed);[sum]:sum(time.elapsed);[max]:max(time.elapsed)",
             "bytes:i;nodename(bytes,1);id(bytes);depth(bytes);nodeend(bytes);rownum()",
             "scopes(elapsed,3);elapsed;enter?:d",
             "ForceCloseContextDepth:i;path(ForceCloseContextDepth)",
         }) {
        for (const auto& [format, separator] :
             {std::pair{Format::CsvComma, ','}, std::pair{Format::CsvPipe, '|'}}) {
            const std::string live = WrittenBy(format, definition, run);
            EXPECT_GT(std::count(live.begin(), live.end(), '\n'), 1) << definition;
            EXPECT_EQ(live, RunRows(definition, xml, std::string::npos, true, separator)) << definition;
        }
    }
}

}  // namespace
}  // namespace Metrics::Testing
