// Whatever names, keys and texts are, the live table, the XML read back and the buffer give the same rows.
#include "metrics/output/TextWriter.h"
#include "metrics/output/XmlWriter.h"
#include "metrics/rows/ColumnSpec.h"
#include "metrics/values/TextBuffer.h"
#include "metrics/values/XmlName.h"
#include "tests/output/OddNames.h"
#include "tests/rows/RunRows.h"
#include "tests/support/Memory.h"
#include "tests/support/Recorder.h"

namespace Metrics::Testing {
namespace {

using enum MetricsEventType;

std::vector<MetricsEvent> BufferedBy(Mode mode, const std::vector<MetricsEvent>& events) {
    Output output(mode, Format::Buffer);
    output.OpenStream(nullptr, 1);
    output.PutInPieces(events, 7);
    output.CloseDown();
    const auto buffer = output.FindBuffer(1);
    return buffer ? ReadEvents(*buffer) : std::vector<MetricsEvent>();
}

std::string Rows(const std::string& definition, const std::vector<MetricsEvent>& events) {
    std::ostringstream rows;
    TextWriter writer(rows, ',', detail::SplitDefinition(definition));
    writer.Begin();
    for (const MetricsEvent& event : events) writer.Write(event);
    writer.End();
    return rows.str();
}

std::string NameInXml(const std::string& text) {
    detail::TextBuffer name;
    AppendXmlName(name, text);
    return std::string(name.View());
}

bool FitsABuffer(const MetricsValue& value) {
    return std::string_view(value.Text()).size() <= 254;
}

TEST(OddNames, GiveTheSameRowsLiveFromXmlAndFromABufferInEveryMode) {
    std::size_t compared = 0, tooLong = 0;
    const std::vector<OddTextsAt> cases = OddCases(kThreadSanitized ? 100 : 1500);
    for (std::size_t i = 0; i < cases.size() && !testing::Test::HasFailure(); ++i) {
        const OddTextsAt& odd = cases[i];
        const std::vector<MetricsEvent> events = OddRun(odd);
        const bool fits = std::all_of(events.begin(), events.end(), [](const MetricsEvent& event) {
            return FitsABuffer(event.param1) && FitsABuffer(event.param2);
        });
        const std::string definitions[] = {
            "path(*);nodename(*);nodenum(*);nodeend(*);linenum(*);depth(*)",
            "nodename(*,1);*.*",
            "[p]:pivotpath(elapsed);[n]:count(elapsed);[s]:sum(elapsed)",
            "[v]:*.\"" + NameInXml(odd.value) + "\";[a]:attr(*,\"" + NameInXml(odd.key) +
                "\");[c]:attr(*,\"comp\")",
            "[s]:*.\"" + NameInXml(odd.scope) + "\";[l]:linenum(*.\"" + NameInXml(odd.scope) + "\")",
        };
        const Mode mode = static_cast<Mode>(i % 3);
        const std::string xml = WrittenBy(mode, Format::Xml, "", events);
        for (const std::string& definition : definitions) {
            const std::string live = WrittenBy(mode, Format::CsvComma, definition, events);
            EXPECT_GT(std::count(live.begin(), live.end(), '\n'), 1) << definition;
            const std::string read = RunRows(definition, xml, std::string::npos, true);
            // The reader takes tags of 65,536 bytes.
            if (read.find("exceeds 65536") != read.npos && odd.text.size() < 65536 && !fits) {
                ++tooLong;
            } else {
                ASSERT_EQ(live, read) << definition << "\n" << xml.substr(0, 1000);
                ++compared;
            }
            if (!fits) continue;
            ASSERT_EQ(live, Rows(definition, BufferedBy(mode, events))) << definition;
        }
    }
    EXPECT_GT(compared, 0U);
    EXPECT_EQ(tooLong, 5U * 5U) << "a name of 70,000 bytes, at each place but the text";
}

// Ten thousand attributes, then a hundred of them again, are no matter of the square.
TEST(OddNames, ManyAttributesComeInOrderEachWithItsLastValue) {
    std::vector<MetricsEvent> events;
    std::string expected = "<s";
    for (int i = 0; i < 10000; ++i) {
        events.push_back(Make(NameValue, 1, "k" + std::to_string(i), i));
        expected += " k" + std::to_string(i) + "=\"" + std::to_string(i % 100 == 0 ? -i : i) + "\"";
    }
    for (int i = 0; i < 10000; i += 100) events.push_back(Make(NameValue, 1, "k" + std::to_string(i), -i));
    events.push_back(Make(ScopeOpen, 1, "s"));
    EXPECT_EQ(Written<XmlWriter>(events), expected + ">\n</s>\n");
    EXPECT_EQ(Rows("[a]:attr(s,\"k9900\");[b]:attr(s,\"k9901\")", events), "a,b\n-9900,9901\n");
}

TEST(OddNames, ThatABufferCutsAreMentionedOnce) {
    LogKeeper log;
    for (const std::size_t size : {254, 255, 256}) {
        Output output(Mode::Borrowed, Format::Buffer);
        output.OpenStream(nullptr, 1);
        output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, std::string(size, 'x').c_str())});
        output.CloseDown();
        output.Conclude();
        const Lines line = {"MX: MetricsOutput: texts of more than 254 bytes were cut in a buffer"};
        EXPECT_EQ(log.Take(), size == 255 ? line : Lines()) << size;
    }
}

TEST(XmlNames, AreWhatTheyAreSaidToBeAndAreReadBack) {
    const std::pair<std::string, std::string> names[] = {
        {"", "_x_"},
        {"_x_", "_x005F_x_"},
        {"-a b.", "_x002D_a_x0020_b."},
        {"_x0041_x0042_", "_x005F_x0041_x005F_x0042_"},
        {"_x0001f600_", "_x005F_x0001f600_"},
        {"_x0041", "_x0041"},
        {"_xD800_\xC3\xA9\xE6\xB8\xAC", "_xD800_\xC3\xA9\xE6\xB8\xAC"},
        {"\xF4\x8F\xBF\xBF\r\xC3\x97", "_x0010FFFF__x000D__x00D7_"},
    };
    for (const auto& [text, name] : names) {
        EXPECT_EQ(NameInXml(text), name);
        EXPECT_EQ(detail::UndoXmlName(name), text);
        EXPECT_LE(detail::IsPlainXmlName(text), name == text) << text;
    }
    EXPECT_EQ(NameInXml("\xFF\x80"), "\xC3\xBF_x0080_") << "bytes that are no characters";
    EXPECT_EQ(detail::UndoXmlName("_x00e9_"), "\xC3\xA9");
}

// The way to the root element's end leads through a close with an error too.
TEST(RootElement, MakesADocumentOfTargetsThatAreOpenedAfterwards) {
    Output output(Mode::Borrowed, Format::Xml);
    const std::stringbuf& before = output.Listen(1);
    output.SetRootElement("all of it");
    const std::stringbuf& document = output.Listen(1);
    output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "a"), Value(1, "v", 1)});
    output.SetError("stop");
    const std::string forced = "<ForceCloseContextDepth>1</ForceCloseContextDepth>\n";
    EXPECT_EQ(before.str(), "<a>\n  <v>1</v>\n  " + forced + "</a>\n");
    EXPECT_EQ(
        document.str(),
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<all_x0020_of_x0020_it>\n  <a>\n    <v>1</v>\n    " +
            forced + "  </a>\n</all_x0020_of_x0020_it>\n");
}

}  // namespace
}  // namespace Metrics::Testing
