// Rows of a row definition, as an output writes them.
#include "metrics/Csv.h"
#include "metrics/RowDefinitionError.h"
#include "metrics/XmlParser.h"
#include "metrics/output/XmlWriter.h"
#include "tests/output/OutputFixture.h"

namespace Metrics::Testing {

namespace {

constexpr std::uint64_t kRoot = 1;

// Two stages, the second of them in a child context, with texts that need care in XML and in CSV.
const std::vector<MetricsEvent> kRun = {
    Create(0, kRoot), Construct(0, kRoot), Attribute(kRoot, "path", "a,\"b\" & <c>\n|d"),
    OpenScope(kRoot, "file"), OpenScope(kRoot, "read stage"), Value(kRoot, "bytes", 17),
    OpenScope(kRoot, "time"), Value(kRoot, "elapsed", 0.25), Value(kRoot, "enter", MetricsDateTime(kNoon)),
    CloseScope(kRoot, "time"), CloseScope(kRoot, "read stage"), Create(kRoot, 2), Construct(kRoot, 2),
    Attribute(2, "path", "child"), OpenScope(2, "merge"), OpenScope(2, "time"), Value(2, "elapsed", 1.5),
    CloseScope(2, "time"),
    // The child and one scope of the root are never closed.
    Value(kRoot, "note", "tab\tand \\ backslash"), OpenScope(kRoot, "left open"), Value(kRoot, "bytes", 3),
    Close(kRoot)};

std::string RowsOf(const std::string& xml, const std::string& definition, char separator) {
    std::ostringstream rows;
    StreamingXml::XmlParser parser(
        [&](StreamingXml::XmlParser& row) { Metrics::WriteCsvRow(row, rows, separator, row.IsSummary()); });
    parser.Compile(definition);
    // A summary's header comes with its groups, and so does that of a live one.
    WriteCsvHeader(parser, rows, separator, parser.IsSummary());
    parser.Feed(xml);
    parser.End();
    return rows.str();
}

std::string Live(Format format, const std::string& definition) {
    Output output(Mode::Borrowed, format);
    output.SetRowDefinition(definition);
    const std::ostringstream& rows = output.Listen(kRoot);
    output.PutInPieces(kRun, 7);
    output.CloseDown();
    EXPECT_EQ(output.Errors(), Briefs());
    return rows.str();
}

std::string Replayed() {
    Output output(Mode::Borrowed, Format::Buffer);
    output.OpenStream(nullptr, kRoot);
    output.Put(kRun);
    output.CloseDown();
    return Written<XmlWriter>(ReadEvents(*output.FindBuffer(kRoot)));
}

}  // namespace

TEST(TableOutput, OneDefinitionGivesTheSameBytesLiveFromXmlAndFromABuffer) {
    const std::string xml = Live(Format::Xml, "");
    EXPECT_EQ(xml, Replayed());
    for (const char* definition : {
             "[path]:attr(file,\"path\");[stage]:path(time);[seconds]:time.elapsed:r:3",
             "attr(*,\"path\");*.note;linenum(*.note):i",
             "[s]:pivotpath(time);[n]:count(time.elapsed);[sum]:sum(time.elapsed);[max]:max(time.elapsed)",
             "bytes:i;nodename(bytes,1);id(bytes);depth(bytes);nodeend(bytes);rownum()",
             "scopes(elapsed,3);elapsed;enter?:d",
             "ForceCloseContextDepth:i;path(ForceCloseContextDepth)",
         }) {
        SCOPED_TRACE(definition);
        for (const auto& [format, separator] :
             {std::pair{Format::CsvComma, ','}, std::pair{Format::CsvPipe, '|'}}) {
            const std::string live = Live(format, definition);
            EXPECT_GT(std::count(live.begin(), live.end(), '\n'), 1);
            EXPECT_EQ(live, RowsOf(xml, definition, separator));
        }
    }
}

using TableFiles = OutputTest;

TEST_F(TableFiles, ABadDefinitionReachesWhoOpensTheTargetAndReplacesNoFile) {
    std::ofstream(Path("rows.csv")) << "precious";
    Output output(Mode::Single, Format::CsvComma);
    output.SetRowDefinition("a;foo(x)");
    try {
        output.OpenFile(Path("rows.csv"), 0);
        FAIL();
    } catch (const RowDefinitionError& error) {
        EXPECT_STREQ(error.what(), "Error: unrecognized function: 'foo'");
    }
    EXPECT_EQ(ReadFile(Path("rows.csv")), "precious");
    output.SetRowDefinition("elapsed");
    output.OpenFile(Path("rows.csv"), 0);
    output.Put(kRun);
    output.CloseDown();
    EXPECT_EQ(ReadFile(Path("rows.csv")), "elapsed\n0.250000\n1.500000\n");
}

TEST_F(TableFiles, ASchemaStandsBesideFilesThatTheirTargetOwns) {
    const std::string definition = "[stage]:path(time):s;[seconds]:time.elapsed:r:3";
    {
        Output borrowed(Mode::Borrowed, Format::CsvPipe);
        borrowed.SetRowDefinition(definition);
        borrowed.OpenFile(Path("borrowed.csv"), kRoot);
    }
    // Windows knows two separators, and the folder has a drive letter there.
    for (const char separator : {'/', platform::PathSeparator()}) {
        std::string folder = Path("the tables");
        std::replace_if(folder.begin(), folder.end(), platform::IsPathSeparator, separator);
        std::filesystem::create_directory(folder);
        Output owned(Mode::PerContext, Format::CsvPipe);
        owned.SetRowDefinition(definition);
        owned.SetWildcard(folder + separator + "run *.csv");
        owned.Put(kRun);
        owned.CloseDown();
        EXPECT_EQ(owned.Errors(), Briefs());
        const std::string schema = ReadFile(Path("the tables/schema.ini"));
        for (const char* line :
             {"[run 1.csv]", "Format=Delimited(|)", "col1=\"stage\" Memo", "col2=\"seconds\" Double"})
            EXPECT_TRUE(Has(schema, line)) << line << " is not in\n" << schema;
        EXPECT_EQ(ReadFile(Path("the tables/run 1.csv")),
                  "stage|seconds\nfile.read.time|0.25\nfile.merge.time|1.5\n");
        std::filesystem::remove_all(folder);
    }
    EXPECT_EQ(ReadFile(Path("schema.ini")), "no file");
}

TEST_F(TableFiles, WhatGoesWrongWhileTheWorkerConvertsIsRecordedAndStopsTheOutput) {
    Output output(Mode::Borrowed, Format::CsvComma);
    output.SetRowDefinition("elapsed");
    const std::ostringstream& rows = output.Listen(kRoot);
    output.Put({Create(0, kRoot), Construct(0, kRoot), OpenScope(kRoot, "file"), Value(kRoot, "elapsed", 1),
                OpenScope(kRoot, std::string(70000, 'x').c_str())});
    const Briefs errors = output.Errors();
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_TRUE(Has(errors[0], "an XML tag exceeds 65536 characters.")) << errors[0];
    EXPECT_EQ(rows.str(), "elapsed\n1\n");
}

}  // namespace Metrics::Testing
