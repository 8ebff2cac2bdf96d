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

// A stream that leaves its text behind when it is deleted.
class KeptStream final : public std::ostringstream {
  public:
    explicit KeptStream(std::string& kept) : kept_(kept) {}
    ~KeptStream() override { kept_ = str(); }

  private:
    std::string& kept_;
};

class OneOutput : public Output {
  public:
    using Output::Output;
    // What it writes of a root, to the stream that is given (to a buffer without one).
    void Run(const std::vector<MetricsEvent>& events, std::ostream* stream) {
        OpenStream(stream, 1);
        PutInPieces(events, 7);
        CloseDown();
        EXPECT_EQ(Errors(), Briefs());
    }
};

std::string WrittenBy(Mode mode, Format format, const std::string& definition,
                      const std::vector<MetricsEvent>& events) {
    std::string text;
    OneOutput output(mode, format);
    output.SetRowDefinition(definition);
    if (mode == Mode::Borrowed) {
        KeptStream stream(text);
        output.Run(events, &stream);
    } else {
        output.Run(events, new KeptStream(text));
    }
    return text;
}

std::vector<MetricsEvent> BufferedBy(Mode mode, const std::vector<MetricsEvent>& events) {
    OneOutput output(mode, Format::Buffer);
    output.Run(events, nullptr);
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

// What the engine gets is what was given: no name is shortened, or taken for another.
TEST(OddNames, ReachLiveTablesAsTheyAre) {
    const std::vector<MetricsEvent> events = {Make(ScopeOpen, 1, "GET /users"),
                                              Make(ScopeClose, 1, "GET /users"),
                                              Make(ScopeOpen, 1, "GET /login"),
                                              Make(NameValue, 1, "x=", "a\r\tb\\n&lt;\x01\xFF"),
                                              Make(NameValue, 1, "a='b", 1),
                                              Make(NameValue, 1, "x=", " 2 "),
                                              Make(ScopeOpen, 1, "vector<int>"),
                                              Make(ScopeValue, 1, "?\xFF", " \t<&>\\\\\x01\r\n "),
                                              Make(ScopeOpen, 1, L"wide \u20AC"),
                                              Make(ScopeValue, 1, "", ""),
                                              Make(ScopeValue, 1, "_x0041_", std::string(70000, 'y'))};
    EXPECT_EQ(Rows("path(*)", events),
              "path(*)\nGET /users\nGET /login.vector<int>.?\xC3\xBF\nGET /login.vector<int>.wide \xC2\xAC.\n"
              "GET /login.vector<int>.wide \xC2\xAC._x0041_\nGET /login.vector<int>.wide \xC2\xAC\n"
              "GET /login.vector<int>\nGET /login\n");
    EXPECT_EQ(Rows("[a]:attr(vector_x003C_int_x003E_,\"x_x003D_\");[b]:attr(vector_x003C_int_x003E_,\"a='b\")"
                   ";[v]:_x003F_\xC3\xBF",
                   events),
              "a,b,v\n 2 ,1,\"\t<&>\\\\\n\"\n");
    EXPECT_EQ(Rows("[v]:_x005F_x0041_;[e]:_x_", events), "v,e\n" + std::string(70000, 'y') + ",\n");
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
        {"a-b_c.d7", "a-b_c.d7"},
        {"", "_x_"},
        {"_x_", "_x005F_x_"},
        {"a b", "a_x0020_b"},
        {"7a", "_x0037_a"},
        {"-a.", "_x002D_a."},
        {".", "_x002E_"},
        {"a:b", "a_x003A_b"},
        {"_", "_"},
        {"_x0041_", "_x005F_x0041_"},
        {"_x0041", "_x0041"},
        {"_x0041 ", "_x005F_x0041_x0020_"},
        {"_x0041_x0042_", "_x005F_x0041_x005F_x0042_"},
        {"_x004_", "_x004_"},
        {"_x0001f600_", "_x005F_x0001f600_"},
        {"_xD800_", "_xD800_"},
        {"_xFFFFFFFF_", "_xFFFFFFFF_"},
        {"\r\n\x01", "_x000D__x000A__x0001_"},
        {"\xC3\xA9\xE6\xB8\xAC", "\xC3\xA9\xE6\xB8\xAC"},
        {"\xC3\x97", "_x00D7_"},
        {"e\xCC\x81", "e_x0301_"},
        {"\xF0\x9F\x98\x80", "_x0001F600_"},
        {"\xF4\x8F\xBF\xBF", "_x0010FFFF_"},
    };
    for (const auto& [text, name] : names) {
        EXPECT_EQ(NameInXml(text), name);
        EXPECT_EQ(detail::UndoXmlName(name), text);
        EXPECT_LE(detail::IsPlainXmlName(text), name == text) << text;
    }
    // Bytes that are no characters.
    EXPECT_EQ(NameInXml("\xFF\x80"), "\xC3\xBF_x0080_");
    EXPECT_EQ(NameInXml("\xEF\xBF\xBE"), "\xC3\xAF_x00BF__x00BE_");
    EXPECT_EQ(detail::UndoXmlName("_x00e9_"), "\xC3\xA9");
}

// The way to the root element's end leads through a close with an error too.
TEST(RootElement, MakesADocumentOfTargetsThatAreOpenedAfterwards) {
    for (const bool fails : {false, true}) {
        Output output(Mode::Borrowed, Format::Xml);
        const std::ostringstream& before = output.Listen(1);
        output.SetRootElement("all of it");
        const std::ostringstream& document = output.Listen(1);
        output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "a"), Value(1, "v", 1)});
        if (fails) {
            output.SetError("stop");
        } else {
            output.Put({CloseScope(1, "another"), CloseScope(1, "a"), Close(1)});
        }
        output.CloseDown();
        const std::string forced = fails ? "<ForceCloseContextDepth>1</ForceCloseContextDepth>\n" : "";
        EXPECT_EQ(before.str(), "<a>\n  <v>1</v>\n" + (fails ? "  " + forced : "") + "</a>\n");
        EXPECT_EQ(
            document.str(),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<all_x0020_of_x0020_it>\n  <a>\n    <v>1</v>\n" +
                (fails ? "    " + forced : "") + "  </a>\n</all_x0020_of_x0020_it>\n");
    }
}

}  // namespace
}  // namespace Metrics::Testing
