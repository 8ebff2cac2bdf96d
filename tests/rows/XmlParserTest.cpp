// The public face: options, header and rows on a stream, and a host with another locale.
#include "metrics/XmlParser.h"

#include <gtest/gtest.h>

#include <clocale>
#include <locale>
#include <sstream>

#include "metrics/Csv.h"
#include "tests/rows/RunRows.h"
#include "tests/support/Thrown.h"

namespace {

using Metrics::Testing::Thrown;
using StreamingXml::XmlParser;

const std::string kInput = "<r><t><e>1</e></t>\n<t><e>2</e></t></r>";

TEST(XmlParser, WritesHeaderAndRows) {
    std::ostringstream out;
    XmlParser parser([&](XmlParser& row) { Metrics::WriteCsvRow(row, out, '|', false); });
    Metrics::WriteCsvHeader(parser, out, '|', false);
    Metrics::WriteCsvRow(parser, out, '|', false);
    parser.Feed(kInput);
    parser.End();
    EXPECT_EQ(out.str(), "\n") << "of no definition";
    out.str("");
    parser.Compile({"[a|b]:t.e", "[x\ny]:t.e:r", "#t.e", "[s]:scopes(t,2)"});
    EXPECT_EQ(parser.Columns(false).size(), 4U);
    Metrics::WriteCsvHeader(parser, out, '|', false);
    parser.Feed(kInput);
    parser.End();
    EXPECT_EQ(out.str(), "\"a|b\"|\"x\ny\"|s1|s2\n1|1.0|r|\n2|2.0|r|\n");
    parser.Reset();
    parser.Feed("<t><e>3</e></t>");
    parser.End();
    EXPECT_TRUE(out.str().ends_with("\n3|3.0||\n"));
}

TEST(XmlParser, AggregatesAreWrittenWhenAskedFor) {
    for (const bool include : {false, true}) {
        std::ostringstream out;
        XmlParser parser([&](XmlParser& row) { Metrics::WriteCsvRow(row, out, ',', include); });
        parser.Compile("[where]:scopes(t,1);[n]:count(t.e)");
        Metrics::WriteCsvHeader(parser, out, ',', include);
        parser.Feed(kInput);
        EXPECT_EQ(out.str(), include ? "where,n\n" : "where\n") << "groups come with the end";
        parser.End();
        EXPECT_EQ(out.str(), include ? "where,n\nr,2\n" : "where\nr\n");
    }
}

TEST(XmlParser, StopsAfterTheFirstRow) {
    int rows = 0;
    XmlParser parser([&](XmlParser&) { ++rows; }, XmlParser::SingleRow);
    parser.Compile("t.e");
    parser.Feed(kInput + "</no></no>");
    parser.Feed("<<<>>");
    parser.End();
    EXPECT_EQ(rows, 1);
}

TEST(XmlParser, OptionBitsTellWhatTheDefinitionUses) {
    XmlParser parser([](XmlParser&) {});
    parser.Compile("path(a);linenum(a);a?;[n]:count(a)");
    using enum XmlParser::Option;
    EXPECT_EQ(parser.Options(), UsesPaths | UsesLineNumbers | ComputesAggregates | HasComputed | HasOptional);
    EXPECT_THROW(parser.Compile("a;b:i;c:q;d"), Metrics::RowDefinitionError);
    EXPECT_EQ(parser.Options(), 0U);
    ASSERT_EQ(parser.Columns(true).size(), 2U) << "the columns before the error";
    EXPECT_EQ(parser.Columns(true)[1].type, Metrics::ColumnType::Integer);
}

TEST(XmlParser, InvertingAndAggregatesExcludeEachOther) {
    XmlParser parser([](XmlParser&) {}, XmlParser::Invert);
    parser.Compile("sum(a)");  // what was compiled before is looked at
    EXPECT_EQ(Thrown<Metrics::RowDefinitionError>([&] { parser.Compile("a"); }),
              "Error: Can't invert output while computing aggregates.");
    EXPECT_THROW(parser.Reset(), Metrics::RowDefinitionError);
    EXPECT_THROW(XmlParser([](XmlParser&) {}, XmlParser::Invert | XmlParser::ComputesAggregates),
                 Metrics::RowDefinitionError);
}

TEST(XmlParser, CopiesEverythingOrWhatNoColumnMatches) {
    const auto copy = [](std::uint32_t options, const std::string& input) {
        std::ostringstream out;
        XmlParser parser([](XmlParser&) {}, options);
        parser.Compile("a.out");
        parser.SetCopyStream(&out);
        for (const char& c : input) parser.Feed({&c, 1});
        parser.End();
        return out.str();
    };
    const std::string input = "<a>\n <!-- c --><out x='1'>no<b/></out>\n <c>&amp;<![CDATA[>]]></c>\n</a>\n";
    EXPECT_EQ(copy(XmlParser::CopyThrough, input), input);
    EXPECT_EQ(copy(XmlParser::Invert, input), "<a>\n <!-- c -->\n <c>&amp;<![CDATA[>]]></c>\n</a>\n");
    EXPECT_EQ(
        copy(XmlParser::CopyThrough | XmlParser::Reindent, "  <a>\n<b>\n      text\n<c/>\n</b>\n\n</a>\n"),
        "<a>\n  <b>\n    text\n    <c/>\n  </b>\n\n</a>\n");
}

TEST(XmlParser, SaysOnceWhatALimitCost) {
    std::string told;
    XmlParser parser([](XmlParser&) {});
    parser.SetNoticeCallback([&](const std::string& text) { told += text + '\n'; });
    parser.Compile("x");
    for (int input = 1; input <= 2; ++input) {
        for (int i = 0; i < 10003; ++i) parser.Feed("<a>\n");
        EXPECT_EQ(parser.LeftOut(), 3U);
        EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), input) << "once for each input";
        parser.Reset();
        EXPECT_EQ(parser.LeftOut(), 0U);
    }
    EXPECT_TRUE(told.starts_with("line 10001, column 1: more than 10000 nested elements: ")) << told;
}

// Whatever the host does with its locale, numbers keep their point.
TEST(XmlParser, TheLocaleOfTheHostDoesNotMatter) {
    class Comma final : public std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new Comma));
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE"})
        if (std::setlocale(LC_ALL, name) != nullptr) break;
    EXPECT_EQ(RunRows("t.e:r;[p]:t.e*1000000:r;[i]:t.i:i", "<t><e>1234.5</e><i>1234567</i></t>"),
              "1234.5,1234500000.0,1234567\n");
    std::setlocale(LC_ALL, "C");
    std::locale::global(previous);
}

}  // namespace
