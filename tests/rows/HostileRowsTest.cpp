// Definitions and inputs that mean no good: each is handled or gets its error, in linear time and bounded
// memory. The time limit of the test is the check that nothing is quadratic.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/rows/RunRows.h"

namespace {

std::string Repeat(const std::string& text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) result += text;
    return result;
}

TEST(HostileRows, EverythingHasALimit) {
    // What is too deep is left out, with its number, and all else is read.
    const std::string deep = Repeat("<a>", 10010) + "<x>1</x>" + Repeat("</a>", 10010);
    EXPECT_EQ(RunRows("nodenum(x);x", deep + "<a><x>2</x></a>"),
              "! line 1, column 30001: more than 10000 nested elements: element 10001 (a) is left out with "
              "all that "
              "is in it\n10013,2\n");
    EXPECT_EQ(RunRows("x", Repeat("<a>", 9999) + "<x>1</x>"), "1\n");
    EXPECT_EQ(RunRows(Repeat("x;", 1000), "<x>1</x>"), Repeat("1,", 999) + "1\n");
    for (const std::string& definition : {Repeat("x;", 1001), std::string("scopes(x,1000);x")})
        EXPECT_EQ(RunRows(definition, "<x>1</x>"), "! Error: more than 1000 columns\n");
    std::string values = "x0";
    for (int i = 1; i <= 4096; ++i) values += "+x" + std::to_string(i);
    EXPECT_EQ(RunRows(values, ""), "! Error: more than 4096 different values\n");
}

TEST(HostileRows, ExpressionsMayNestSoDeepOnly) {
    const auto nested = [](std::size_t depth) {
        return RunRows("x;[r]:" + Repeat("(", depth) + "1" + Repeat(")", depth), "<x>1</x>");
    };
    EXPECT_EQ(nested(199), "1,1\n");
    for (const std::size_t depth : {200U, 10000U})
        EXPECT_TRUE(nested(depth).starts_with("! Error: more than 200 levels of nesting: '"));
    for (const std::string& definition :
         {Repeat("abs(", 10000) + "x" + Repeat(")", 10000), Repeat("-- ", 10000) + "x"})
        EXPECT_TRUE(RunRows(definition, "").starts_with("! "));
    // A long chain does not nest.
    EXPECT_EQ(RunRows("x;[r]:1" + Repeat("+1", 100000), "<x>1</x>"), "1,100001.0\n");
}

TEST(HostileRows, OnlyAWantedTextIsKept) {
    constexpr std::size_t kMost = 16 << 20;
    const std::string input = "<a>" + std::string(6 * kMost, 't') + "<x>" + std::string(kMost, 't');
    EXPECT_EQ(RunRows("a.x;y", input, 1 << 20), "");
    // The one that is too long costs its row, not the label that it stands for.
    const std::string tooLong =
        "<a>\n <x>1</x><y>1</y>\n <x>" + std::string(17 << 20, 't') + "</x><y>2</y><x>3</x><y>3</y></a>";
    EXPECT_EQ(
        RunRows("a.x;a.y", tooLong, 1000000),
        "! line 3, column 2: a value exceeds 16777216 bytes: rows that hold it, from element 4 (x), are "
        "left out\n1,1\n3,3\n");
}

TEST(HostileRows, WaitingRowsAreBounded) {
    // Each waits for "b"; past 10,000 the oldest goes without it.
    const std::string input = "<r>" + Repeat("<a>1</a>", 10005) + "<b>2</b></r>";
    EXPECT_TRUE(
        RunRows("r.a;r.b?", input) ==
        "! line 1, column 80016: more than 10000 rows wait in element 1 (r): the oldest go without what they "
        "wait for\n" +
            Repeat("1,\n", 4) + Repeat("1,2\n", 10001));
}

TEST(HostileRows, LinearTimeIsEnough) {
    // Rows that lack "c" meet value after value that is none of their business.
    const std::string values = "<r>" + Repeat("<a>1</a><b>2</b>", 200000) + "</r>";
    // Deep elements that match but lack the attribute.
    const std::string deep =
        "<c id='1'>" + Repeat("<c>", 9000) + Repeat("<t><e>1</e></t>", 100000) + Repeat("</c>", 9001);
    const std::string oneLine = Repeat("<t><e>1</e></t>", 300000);
    const struct {
        const char* definition;
        const std::string& input;
        std::size_t chunk;
        int rows;
    } cases[] = {{"r.a;r.b;r.c", values, values.size(), 0},
                 {"r.a;r.b;r.c?", values, values.size(), 200000},
                 {"attr(c,\"id\");t.e", deep, deep.size(), 100000},
                 {"c.n?;t.e", deep, deep.size(), 100000},
                 {"linenum(t);t.e", oneLine, 1000, 300000}};
    for (const auto& [definition, input, chunk, expected] : cases) {
        const std::string rows = RunRows(definition, input, chunk);
        // Two of them tell that too many rows wait.
        const auto lines =
            std::count(rows.begin(), rows.end(), '\n') - std::count(rows.begin(), rows.end(), '!');
        EXPECT_EQ(lines, expected) << definition;
    }
}

// With k wildcards behind a name there could be 2^k states.
TEST(HostileRows, WildcardsCannotMultiplyStatesForEver) {
    std::mt19937 random(1);
    std::string input;
    for (unsigned i = 0; i < 30000; ++i) {
        input += random() % 2 != 0 ? "<a>" : "<b>";
        if (i % 9000 == 8999) input += Repeat("</>", 9000);
    }
    EXPECT_EQ(RunRows("a" + Repeat(".*", 10) + ".x", input), "");
    EXPECT_EQ(RunRows("a" + Repeat(".*", 30) + ".x", input),
              "! Error: the wildcards of the paths match in too many ways\n");
}

}  // namespace
