// Any definition on any input: no crash, and the same rows whatever the pieces.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "tests/rows/RunRows.h"

namespace {

// Texts of a grammar. Its symbols are capital letters.
const std::map<char, std::vector<std::string>> kRules = {
    {'N', {"a", "b", "c", "d"}},
    {'S', {"N", "N", "N", "N", "N", "N", "N", "*"}},
    {'P', {"S", "S.S", "S.S.S"}},
    {'F',
     {"P", "P", "P", "P", "P", "attr(P,\"k\")", "P..k", "path(P)", "pivotpath(P)", "scopes(P,2)",
      "nodeend(P,0)", "nodeend(P,1)", "id(P)", "P?", "#P>3", "P+P"}},
    {'R', {"F", "F;F", "F;F;F", "F;F;F;F", "F;F;count(P);sum(P)"}},
    {'K', {"", "", " k='V'"}},
    {'X', {"<NK>", "<NK/>", "</>", "<NK>V</>", "<NK>&lt;V</>", "<!-- N>V -->", "<![CDATA[<V]]>"}},
};

class Source {
  public:
    explicit Source(unsigned seed) : random_(seed) {}

    std::size_t Below(std::size_t limit) { return random_() % limit; }

    std::string Text(const std::string& symbols) {
        std::string text;
        for (const char c : symbols) {
            const auto rule = kRules.find(c);
            if (rule != kRules.end()) {
                text += Text(rule->second[Below(rule->second.size())]);
            } else if (c == 'V') {
                text += std::to_string(++number_);  // never the same twice in one input
            } else {
                text += c;
            }
        }
        return text;
    }

  private:
    std::mt19937 random_;
    std::size_t number_ = 0;
};

TEST(RandomRows, PiecesMakeNoDifference) {
    for (unsigned seed = 0; seed < 10000; ++seed) {
        Source source(seed);
        const std::string definition = source.Text("R");
        std::string input = source.Text(std::string(source.Below(40), 'X'));
        if (seed % 4 == 0) input.resize(source.Below(input.size() + 1));
        const std::string whole = RunRows(definition, input);
        ASSERT_EQ(RunRows(definition, input, 1 + seed % 5), whole) << definition << "\n" << input;
        const std::size_t error = whole.find("! ");
        ASSERT_EQ(error, whole.find("! Error: invalid XML tag: ")) << definition << "\n" << input;
    }
}

}  // namespace
