#include <gtest/gtest.h>

#include "tests/rows/RowCases.h"

namespace {

class RowLanguageTest : public testing::TestWithParam<const char*> {
  protected:
    // Whether the case comes out as it should, read in pieces of that size.
    static void Check(const RowCase& test, std::size_t chunk) {
        const RowOutcome outcome = RunRows(test.definition, test.input, chunk, test.withHeader);
        ASSERT_EQ(outcome.output, test.output) << test.title << ", pieces of " << chunk;
        ASSERT_EQ(outcome.error, test.error) << test.title << ", pieces of " << chunk;
    }
};

TEST_P(RowLanguageTest, EveryCaseWholeAndInPieces) {
    const auto cases = ReadCases(std::string(ROW_DATA) + "/" + GetParam() + ".rows");
    ASSERT_FALSE(cases.empty());
    for (const RowCase& test : cases)
        for (std::size_t chunk = 0; chunk <= 5; ++chunk) Check(test, chunk);
}

INSTANTIATE_TEST_SUITE_P(Files, RowLanguageTest,
                         testing::Values("columns", "expressions", "functions", "matching", "aggregates",
                                         "markup"),
                         [](const auto& file) { return std::string(file.param); });

}  // namespace
