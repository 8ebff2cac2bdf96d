// What each writer makes of each event. For names and texts with any bytes see OddNamesTest.cpp.
#include "metrics/output/BufferWriter.h"
#include "metrics/output/RawWriter.h"
#include "metrics/output/XmlWriter.h"
#include "tests/output/OutputFixture.h"

namespace Metrics {
namespace {

using namespace Testing;

TEST(RawWriterTest, WritesLinesAndMutesTimesAndContexts) {
    const std::vector<MetricsEvent> events = {
        Create(5, 6), Construct(5, 6), Value(3, "a\"b,c\nd\re", 1.5),
        MetricsEvent(Opaque64(MetricsEvent::PackHeader(MetricsEventType::SetBits, 4095, 1)), UINT64_MAX, 0,
                     Opaque64(1), true)};
    EXPECT_EQ(Written<RawWriter>(events, false),
              "2013-04-08 12:00:00,5,7,1,\"5\",\"6\"\n"
              "2013-04-08 12:00:00,6,7,2,\"5\",\"6\"\n"
              "2013-04-08 12:00:00,3,7,10,\"a\"b,c\\nde\",\"1.500000\"\n"
              "0,18446744073709551615,4095,24,,\"true\"\n");
    EXPECT_EQ(Written<RawWriter>(events, true),
              "2012-11-01 22:26:51,0,7,1,\"0\",\"6\"\n"
              "2012-11-01 22:26:51,0,7,2,\"0\",\"6\"\n"
              "2012-11-01 22:26:51,0,7,10,\"a\"b,c\\nde\",\"1.500000\"\n"
              "2012-11-01 22:26:51,0,4095,24,,\"true\"\n");
}

TEST(XmlWriterTest, NestsScopesAndPlacesAttributesOnTheNextOne) {
    const auto forced = [](std::int64_t depth) { return Make(MetricsEventType::DemuxSynthesized, 1, depth); };
    const std::pair<std::vector<MetricsEvent>, const char*> cases[] = {
        {{Attribute(1, "pid", 12), Attribute(1, "who", "a<b>&\"'\\\t\n\r\1"), OpenScope(1, "job"),
          OpenScope(1, "step"), Attribute(1, "k", "v"), Value(1, "n", "x<y"), OpenScope(1, "inner"),
          CloseScope(1, "inner"), CloseScope(1, "step"), Close(1), CloseScope(1, "job"),
          CloseScope(1, "job")},
         "<job pid=\"12\" who=\"a&lt;b&gt;&amp;&quot;&apos;\\\\&#x9;&#xA;\">\n"
         "  <step>\n"
         "    <n>x&lt;y</n>\n"
         "    <inner k=\"v\">\n"
         "    </inner>\n"
         "  </step>\n"
         "</job>\n"},
        // Closing discards attributes, forced or not, and ends the innermost element whatever its event says.
        // What is open when the target closes is closed.
        {{OpenScope(1, "a"), Attribute(1, "lost", 1), CloseScope(1, "b"), OpenScope(1, "c"),
          Attribute(1, "lost", 1), forced(0), OpenScope(1, "d")},
         "<a>\n</a>\n<c>\n  <d>\n  </d>\n</c>\n"},
        // Forced closure closes as many as it says, and no more than are open.
        {{OpenScope(1, "a"), OpenScope(1, "b"), OpenScope(1, "c"), forced(2), CloseScope(1, "a")},
         "<a>\n  <b>\n    <c>\n      <ForceCloseContextDepth>2</ForceCloseContextDepth>\n"
         "    </c>\n  </b>\n</a>\n"},
        {{OpenScope(1, "a"), forced(9)}, "<a>\n  <ForceCloseContextDepth>9</ForceCloseContextDepth>\n</a>\n"},
        {{forced(0), forced(-1), forced(std::int64_t{1} << 31)}, ""},
    };
    for (const auto& [events, text] : cases) EXPECT_EQ(Written<XmlWriter>(events), text);
}

// The worked example of docs/formats/event-buffer.md.
TEST(BufferWriterTest, WritesTheDocumentedBytes) {
    BufferWriter writer;
    writer.Begin();
    const MetricsDateTime time(kNoon + ((6 * 60 + 3) * 60 + 29) * 10000ULL + 420);
    writer.Write(MetricsEvent(Opaque64(MetricsEvent::PackHeader(MetricsEventType::ScopeOpen, 1, 7)), 5, time,
                              MetricsValue::Ref("load"), 0));
    writer.End();
    const std::vector<std::uint8_t> expected = {0x42, 0x4F, 0x5A, 0x4F, 1,    0,    0,    0, 1,
                                                0,    0,    0,    0x2C, 0,    0,    0,           //
                                                10,   0x19, 0,    0x10, 0,    7,    0,    0, 0,  //
                                                0,    5,    0,    0,    0,    0,    0,    0, 0,  //
                                                3,    0xB4, 0x27, 0xAB, 0x81, 0x3D, 0x8A, 7, 0,  //
                                                4,    5,    0,    'l',  'o',  'a',  'd',  0,     //
                                                0,    0,    0,    0,    0,    0,    0,    0, 0};
    EXPECT_EQ(writer.TakeBuffer()->Bytes(), expected);
}

}  // namespace
}  // namespace Metrics
