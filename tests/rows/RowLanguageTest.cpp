// The language of rows: what the data files and docs/rows.md say of it holds, for the whole input and for
// pieces.
//
// A data file has comment first and then cases, each like this:
//
//     == what it shows
//     --- definition
//     time.elapsed
//     --- input
//     <s><time><elapsed>1</elapsed></time></s>
//     --- rows
//     1
//
// "--- table" instead of "--- rows" expects the header line too. "--- error" holds the message of what is
// thrown, after the rows when it comes with rows. Many expressions are one case with the parts "results" or
// "errors" instead: lines "expression => result" and "definition => message". Their input has a v with an a
// of 7.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <sstream>

#include "tests/rows/RunRows.h"
#include "tests/support/FolderTest.h"

namespace {

std::vector<std::string> Split(const std::string& text, const std::string& mark) {
    std::vector<std::string> pieces;
    for (std::size_t at = 0, end = 0; end != text.npos; at = end + mark.size()) {
        end = text.find(mark, at);
        pieces.push_back(text.substr(at, end - at));
    }
    return pieces;
}

// The first line of a part says what the rest of it is.
std::pair<std::string, std::string> Named(const std::string& part) {
    const std::size_t end = part.find('\n');
    return {part.substr(0, end), part.substr(end + 1)};
}

void Check(const std::string& definition, const std::string& input, const std::string& rows,
           bool withHeader = false) {
    for (std::size_t pieces = 0; pieces <= 5; ++pieces) {
        const std::size_t chunk = pieces == 0 ? input.size() : pieces;
        ASSERT_EQ(RunRows(definition, input, chunk, withHeader), rows)
            << definition << ", pieces of " << chunk;
    }
}

class RowLanguage : public testing::TestWithParam<const char*> {};

TEST_P(RowLanguage, EveryCaseHolds) {
    const auto cases =
        Split(Metrics::Testing::ReadFile(std::string(ROW_DATA "/") + GetParam() + ".rows"), "\n== ");
    ASSERT_GT(cases.size(), 1U);
    for (std::size_t i = 1; i < cases.size(); ++i) {
        SCOPED_TRACE(cases[i]);
        std::map<std::string, std::string> parts;
        const auto pieces = Split(cases[i], "--- ");  // the first is the title
        for (std::size_t part = 1; part < pieces.size(); ++part) parts.insert(Named(pieces[part]));
        const auto take = [&](const char* part) {
            const auto node = parts.extract(part);
            return node.empty() ? "" : node.mapped();
        };
        const std::string input = take("input"), definition = take("definition"), error = take("error");
        const bool withHeader = parts.contains("table");
        const std::string rows = take("rows") + take("table") + (error.empty() ? "" : "! " + error);
        if (!definition.empty()) Check(definition, input, rows, withHeader);
        for (const bool wrong : {false, true}) {
            std::istringstream lines(take(wrong ? "errors" : "results"));
            for (std::string line; std::getline(lines, line);) {
                const std::size_t arrow = line.find(" => ");
                ASSERT_NE(arrow, line.npos) << line;
                const std::string left = line.substr(0, arrow), right = line.substr(arrow + 4) + '\n';
                // An expression of literals alone makes no row, so that another column has to.
                if (wrong)
                    Check(left, input, "! " + right);
                else
                    Check("v.a;[r]:" + left, input, "7," + right);
            }
        }
        EXPECT_TRUE(parts.empty()) << "what is this part?";
    }
}

INSTANTIATE_TEST_SUITE_P(Files, RowLanguage,
                         testing::Values("columns", "expressions", "functions", "matching", "labels",
                                         "aggregates", "markup"),
                         [](const auto& file) { return std::string(file.param); });

// A fenced block "definition" followed by "csv" is an example; "xml" is its input, or, before the first
// definition, that of all without one. So is a line of a table that has code in its first two columns.
TEST(RowsPage, EveryExampleHolds) {
    const std::string page =
        std::regex_replace(Metrics::Testing::ReadFile(ROW_PAGE), std::regex(R"(\\\|)"), "|");
    std::string common, definition, input;
    std::size_t definitions = 0, examples = 0, expressions = 0, errors = 0;
    const auto blocks = Split(page, "```");
    for (std::size_t i = 1; i < blocks.size(); i += 2) {
        const auto [kind, content] = Named(blocks[i]);
        if (kind == "definition") {
            definition = content;
            input = common;
            ++definitions;
        } else if (kind == "xml") {
            (definition.empty() ? common : input) = content;
        } else if (kind == "csv") {
            Check(definition, input, content, true);
            ++examples;
        }
    }
    EXPECT_GT(examples, 12U);
    EXPECT_EQ(examples, definitions);

    const std::regex row("\n\\| `([^`]+)` \\| `([^`]+)` \\|");
    for (std::sregex_iterator line(page.begin(), page.end(), row), end; line != end; ++line) {
        const std::string code = (*line)[1], result = (*line)[2];
        if (result.find("rror: ") == result.npos && !result.starts_with("Not supported: ")) {
            // The path makes the row, which an expression of literals alone does not.
            Check("job.words;" + code, common, "120," + result + '\n');
            ++expressions;
        } else {
            Check(code, "", "! " + result + '\n');
            ++errors;
        }
    }
    EXPECT_GT(expressions, 40U);
    EXPECT_GT(errors, 18U);
}

}  // namespace
