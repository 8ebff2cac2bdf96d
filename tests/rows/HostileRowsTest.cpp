// Definitions and inputs that mean no good: each is handled or gets its error, in linear time and bounded
// memory. The time limit of the test is the check that nothing is quadratic.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "metrics/XmlParser.h"
#include "tests/rows/RowCases.h"

namespace {

std::string Repeat(const std::string& text, std::size_t times) {
    std::string result;
    result.reserve(text.size() * times);
    for (std::size_t i = 0; i < times; ++i) result += text;
    return result;
}

std::size_t Lines(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(HostileRows, NestingHasALimit) {
    EXPECT_EQ(RunRows("b.x", Repeat("<a>", 10000)).error, "");
    EXPECT_EQ(RunRows("b.x", Repeat("<a>", 10001)).error, "Error: more than 10000 nested elements");
    EXPECT_EQ(RunRows("b.x", Repeat("<a>", 100000)).error, "Error: more than 10000 nested elements");
}

TEST(HostileRows, ExpressionsMayNestSoDeepOnly) {
    const auto nested = [](std::size_t depth) {
        return RunRows("x;[r]:" + Repeat("(", depth) + "1" + Repeat(")", depth), "<x>1</x>");
    };
    EXPECT_EQ(nested(199).output, "1,1\n");
    EXPECT_TRUE(nested(200).error.starts_with("Error: more than 200 levels of nesting: '"));
    EXPECT_TRUE(nested(10000).error.starts_with("Error: more than 200 levels of nesting: '"));
    EXPECT_NE(RunRows(Repeat("abs(", 10000) + "x" + Repeat(")", 10000), "").error, "");
    EXPECT_NE(RunRows(Repeat("-- ", 10000) + "x", "").error, "");
    // A long chain does not nest.
    EXPECT_EQ(RunRows("x;[r]:1" + Repeat("+1", 100000), "<x>1</x>").output, "1,100001.0\n");
}

TEST(HostileRows, ColumnsAndValuesHaveALimit) {
    EXPECT_EQ(RunRows(Repeat("x;", 1000), "<x>1</x>").error, "");
    EXPECT_EQ(RunRows(Repeat("x;", 1001), "<x>1</x>").error, "Error: more than 1000 columns");
    EXPECT_EQ(RunRows("scopes(x,1000);x", "<x>1</x>").error, "Error: more than 1000 columns");
    std::string values = "x0";
    for (int i = 1; i <= 4096; ++i) values += "+x" + std::to_string(i);
    EXPECT_EQ(RunRows(values, "").error, "Error: more than 4096 different values");
}

TEST(HostileRows, OnlyAWantedTextIsKept) {
    StreamingXml::XmlParser parser([](StreamingXml::XmlParser&) {});
    parser.Compile("a.x;y");
    const std::string piece(1 << 20, 't');
    parser.Feed("<a>");
    for (int i = 0; i < 100; ++i) parser.Feed(piece);
    parser.Feed("<x>");
    for (int i = 0; i < 16; ++i) parser.Feed(piece);
    EXPECT_THROW(parser.Feed("t"), Metrics::RowDefinitionError);
}

TEST(HostileRows, WaitingRowsAreBounded) {
    // Each waits for "b"; past 10,000 the oldest goes without it.
    const std::string input = "<r>" + Repeat("<a>1</a>", 10005) + "<b>2</b></r>";
    const std::string output = RunRows("r.a;r.b?", input).output;
    EXPECT_EQ(Lines(output), 10005U);
    EXPECT_TRUE(output.starts_with("1,\n1,\n1,\n1,\n1,2\n"));
}

TEST(HostileRows, ManyWaitingRowsAndManyValues) {
    // Rows that lack "c" meet value after value that is none of their business.
    const std::string input = "<r>" + Repeat("<a>1</a><b>2</b>", 200000) + "</r>";
    EXPECT_EQ(RunRows("r.a;r.b;r.c", input).output, "");
    EXPECT_EQ(Lines(RunRows("r.a;r.b;r.c?", input).output), 200000U);
}

TEST(HostileRows, DeepElementsThatMatchButLackTheAttribute) {
    const std::string input =
        "<c id='1'>" + Repeat("<c>", 9000) + Repeat("<t><e>1</e></t>", 100000) + Repeat("</c>", 9001);
    EXPECT_EQ(Lines(RunRows("attr(c,\"id\");t.e", input).output), 100000U);
    EXPECT_EQ(Lines(RunRows("c.n?;t.e", input).output), 100000U);
}

// With k wildcards behind a name there could be 2^k states.
TEST(HostileRows, WildcardsCannotMultiplyStatesForEver) {
    std::mt19937 random(1);
    std::string input;
    for (unsigned i = 0; i < 30000; ++i) {
        input += random() % 2 != 0 ? "<a>" : "<b>";
        if (i % 9000 == 8999) input += Repeat("</>", 9000);
    }
    EXPECT_EQ(RunRows("a" + Repeat(".*", 10) + ".x", input).error, "");
    EXPECT_EQ(RunRows("a" + Repeat(".*", 30) + ".x", input).error,
              "Error: the wildcards of the paths match in too many ways");
}

TEST(HostileRows, AFileMayBeCutAnywhere) {
    const std::string input =
        "<!-- c --><cxt pid='7>'><a><time><elapsed>1</elapsed></time></a><![CDATA[x]]><time><elapsed>&lt;2"
        "</elapsed></time></cxt>";
    for (std::size_t size = 0; size <= input.size(); ++size) {
        const RowOutcome whole = RunRows("attr(cxt,\"pid\");time.elapsed;path(time)", input.substr(0, size));
        const RowOutcome pieces =
            RunRows("attr(cxt,\"pid\");time.elapsed;path(time)", input.substr(0, size), 1);
        EXPECT_EQ(whole.output, pieces.output) << size;
        EXPECT_EQ(whole.error, pieces.error) << size;
        EXPECT_TRUE(whole.error.empty() || whole.error.starts_with("Error: invalid XML tag: ")) << size;
    }
}

TEST(HostileRows, OneLongLineIsAsGoodAsMany) {
    const std::string row = "<t><e>1</e></t>";
    EXPECT_EQ(Lines(RunRows("linenum(t);t.e", Repeat(row, 300000), 1000).output), 300000U);
}

}  // namespace
