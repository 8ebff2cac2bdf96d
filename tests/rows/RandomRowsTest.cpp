// Any definition on any input: no crash, the same rows whatever the pieces, and none twice: a row holds a
// value that no row before it held.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "tests/rows/RowCases.h"

namespace {

class Source {
  public:
    explicit Source(unsigned seed) : random_(seed) {}

    unsigned Below(unsigned limit) { return static_cast<unsigned>(random_()) % limit; }
    std::string Name() { return std::string(1, static_cast<char>('a' + Below(4))); }

    std::string Path() {
        std::string path = Below(8) == 0 ? "*" : Name();
        for (unsigned more = Below(3); more > 0; --more) path += "." + (Below(8) == 0 ? "*" : Name());
        return path;
    }
    std::string Column() {
        switch (Below(14)) {
            case 0: return "attr(" + Path() + ",\"k\")";
            case 1: return Path() + "..k";
            case 2: return "path(" + Path() + ")";
            case 3: return "pivotpath(" + Path() + ")";
            case 4: return "scopes(" + Path() + ",2)";
            case 5: return "nodeend(" + Path() + "," + std::to_string(Below(3)) + ")";
            case 6: return "id(" + Path() + ")";
            case 7: return Path() + "?";
            case 8: return "#" + Path() + ">3";
            case 9: return Path() + "+" + Path();
            default: return Path();
        }
    }
    std::string Definition() {
        std::string definition = Column();
        for (unsigned more = Below(4); more > 0; --more) definition += ";" + Column();
        if (Below(6) == 0) definition += ";count(" + Path() + ");sum(" + Path() + ")";
        return definition;
    }
    std::string Input() {
        std::string input;
        for (unsigned tags = Below(40); tags > 0; --tags) {
            const std::string attribute = Below(3) == 0 ? " k='" + Number() + "'" : "";
            switch (Below(5)) {
                case 0: input += "<" + Name() + attribute + ">"; break;
                case 1: input += "<" + Name() + attribute + "/>"; break;
                case 2: input += "</>"; break;
                default: input += "<" + Name() + attribute + ">" + Number() + "</>";
            }
        }
        return input;
    }

  private:
    // Never the same twice in one input.
    std::string Number() { return std::to_string(++number_); }

    std::mt19937 random_;
    unsigned number_ = 0;
};

TEST(RandomRows, PiecesMakeNoDifference) {
    for (unsigned seed = 0; seed < 20000; ++seed) {
        Source source(seed);
        const std::string definition = source.Definition();
        const std::string input = source.Input();
        const RowOutcome whole = RunRows(definition, input);
        const RowOutcome pieces = RunRows(definition, input, 1 + seed % 5);
        ASSERT_EQ(whole.output, pieces.output) << definition << "\n" << input;
        ASSERT_EQ(whole.error, pieces.error) << definition << "\n" << input;
    }
}

// With plain required paths only, each line is unlike every other: its new value stands in it.
TEST(RandomRows, NoRowComesTwice) {
    std::size_t rows = 0;
    for (unsigned seed = 0; seed < 20000; ++seed) {
        Source source(seed);
        const std::string definition = source.Path() + ";" + source.Path();
        const std::string input = source.Input();
        std::set<std::string> seen;
        const std::string output = RunRows(definition, input).output;
        for (std::size_t at = 0; at < output.size();) {
            const std::size_t end = output.find('\n', at);
            const std::string line = output.substr(at, end - at);
            at = end + 1;
            // An empty text is a value too, but nothing to tell rows by.
            if (line.find(",,") != line.npos || line.front() == ',' || line.back() == ',') continue;
            ++rows;
            ASSERT_TRUE(seen.insert(line).second) << definition << "\n" << input << "\n" << line;
        }
    }
    EXPECT_GT(rows, 1000U) << "else this shows nothing";
}

}  // namespace
