// Rows of a row definition, as an output writes them.
#include "tests/output/OutputFixture.h"

namespace Metrics::Testing {
namespace {

using TableFiles = OutputTest;

TEST_F(TableFiles, ASchemaStandsBesideFilesThatTheirTargetOwns) {
    const std::string definition = "[stage]:path(time):s;[seconds]:time.elapsed:r:3";
    {
        Output borrowed(Mode::Borrowed, Format::CsvPipe, definition);
        borrowed.OpenFile(Path("borrowed.csv"), 1);
    }
    // Windows knows two separators, and the folder has a drive letter there.
    for (const char separator : {'/', platform::PathSeparator()}) {
        std::string folder = Path("the tables");
        std::replace_if(folder.begin(), folder.end(), platform::IsPathSeparator, separator);
        std::filesystem::create_directory(folder);
        Output owned(Mode::PerContext, Format::CsvPipe, definition);
        owned.SetWildcard(folder + separator + "run *.csv");
        // The second stage is in a child context that is never closed.
        owned.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "read"), OpenScope(1, "time"),
                   Value(1, "elapsed", 0.25), CloseScope(1, "time"), Create(1, 2), Construct(1, 2),
                   OpenScope(2, "merge"), OpenScope(2, "time"), Value(2, "elapsed", 1.5),
                   CloseScope(2, "time"), Close(1)});
        owned.CloseDown();
        EXPECT_EQ(owned.Errors(), Briefs());
        const std::string schema = ReadFile(Path("the tables/schema.ini"));
        for (const char* line :
             {"[run 1.csv]", "Format=Delimited(|)", "col1=\"stage\" Memo", "col2=\"seconds\" Double"})
            EXPECT_TRUE(Has(schema, line)) << line << " is not in\n" << schema;
        EXPECT_EQ(ReadFile(Path("the tables/run 1.csv")),
                  "stage|seconds\nread.time|0.25\nread.merge.time|1.5\n");
        std::filesystem::remove_all(folder);
    }
    EXPECT_EQ(ReadFile(Path("schema.ini")), "no file");
}

// Every way from the top down is another one.
void AddTree(int levels, std::vector<MetricsEvent>& events) {
    if (levels == 0) return;
    for (const char* name : {"a", "x"}) {
        events.push_back(OpenScope(1, name));
        AddTree(levels - 1, events);
        events.push_back(CloseScope(1, name));
    }
}

TEST_F(TableFiles, WhatGoesWrongWhileTheWorkerConvertsIsRecordedAndStopsTheOutput) {
    Output output(Mode::Borrowed, Format::CsvComma, "elapsed;a.*.*.*.*.*.*.*.*.*.*.*.*.*.*.*.b?");
    const std::stringbuf& rows = output.Listen(1);
    output.Put(
        {Create(0, 1), Construct(0, 1), OpenScope(1, "file"), Value(1, "elapsed", 1), CloseScope(1, "file")});
    std::vector<MetricsEvent> tree;
    AddTree(17, tree);
    output.Put(tree);
    EXPECT_EQ(
        output.Errors(),
        Briefs{"failed to write to context 1: Error: the wildcards of the paths match in too many ways"});
    EXPECT_EQ(rows.str(), "elapsed,a.*.*.*.*.*.*.*.*.*.*.*.*.*.*.*.b?\n1,\n");
}

}  // namespace
}  // namespace Metrics::Testing
