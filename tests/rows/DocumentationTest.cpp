// Every example of docs/rows.md holds. A fenced block "definition" followed by "csv" is an example; "xml" is
// its input, or, before the first definition, that of all without one. Of the tables those headed
// "Expression" and "Definition" are examples too.
#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "tests/rows/RowCases.h"

namespace {

struct Example {
    std::string definition;
    std::string input;
    std::string output;
};

struct TableRow {
    std::string code;
    std::string result;
};

class RowsPage : public testing::Test {
  protected:
    RowsPage() {
        std::ifstream page(ROW_PAGE);
        for (std::string line; std::getline(page, line);) {
            if (line.starts_with("```")) {
                ReadBlock(line.substr(3), page);
            } else {
                ReadTableLine(line);
            }
        }
    }

    void ReadBlock(const std::string& kind, std::ifstream& page) {
        std::string content;
        for (std::string line; std::getline(page, line) && line != "```";) content += line + "\n";
        if (kind == "definition") {
            examples_.push_back({content, input_, {}});
        } else if (kind == "csv") {
            examples_.back().output = content;
        } else if (kind == "xml") {
            (examples_.empty() ? input_ : examples_.back().input) = content;
        }
    }

    void ReadTableLine(const std::string& line) {
        if (line.starts_with("| Expression |")) {
            table_ = &expressions_;
        } else if (line.starts_with("| Definition |")) {
            table_ = &errors_;
        } else if (!line.starts_with('|')) {
            table_ = nullptr;
        } else if (table_ != nullptr && line.starts_with("| `")) {
            const std::size_t middle = line.find("` | `");
            const std::size_t end = line.find("` |", middle + 5);
            table_->push_back({Unescaped(line.substr(3, middle - 3)),
                               Unescaped(line.substr(middle + 5, end - middle - 5))});
        }
    }

    static std::string Unescaped(std::string text) {
        for (std::size_t at = 0; (at = text.find("\\|", at)) != std::string::npos; ++at) text.erase(at, 1);
        return text;
    }

    std::string input_;
    std::vector<Example> examples_;
    std::vector<TableRow> expressions_;
    std::vector<TableRow> errors_;
    std::vector<TableRow>* table_ = nullptr;
};

TEST_F(RowsPage, ExamplesHold) {
    EXPECT_GT(examples_.size(), 12U);
    for (const Example& example : examples_) {
        const RowOutcome outcome = RunRows(example.definition, example.input, 0, true);
        EXPECT_EQ(outcome.output, example.output) << example.definition;
        EXPECT_EQ(outcome.error, "") << example.definition;
    }
}

TEST_F(RowsPage, ExpressionsGiveTheirResults) {
    EXPECT_GT(expressions_.size(), 40U);
    for (const auto& [code, result] : expressions_) {
        // The path makes the row, which an expression of literals alone does not.
        const RowOutcome outcome = RunRows("job.words;" + code, input_);
        EXPECT_EQ(outcome.output, "120," + result + "\n") << code;
        EXPECT_EQ(outcome.error, "") << code;
    }
}

TEST_F(RowsPage, ErrorsHaveTheirWords) {
    EXPECT_GT(errors_.size(), 18U);
    for (const auto& [definition, message] : errors_)
        EXPECT_EQ(RunRows(definition, "").error, message) << definition;
}

}  // namespace
