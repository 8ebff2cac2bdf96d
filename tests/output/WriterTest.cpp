// What each writer makes of each event.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "metrics/output/BufferWriter.h"
#include "metrics/output/NullStream.h"
#include "metrics/output/RawWriter.h"
#include "metrics/output/XmlWriter.h"
#include "tests/output/EventMaking.h"

namespace Metrics {
namespace {

using namespace Testing;

std::string Raw(const MetricsEvent& event, bool mute) {
    std::ostringstream stream;
    RawWriter writer(stream, mute);
    writer.Write(event);
    writer.Flush();
    return stream.str();
}

std::string Xml(const std::vector<MetricsEvent>& events) {
    std::ostringstream stream;
    XmlWriter writer(stream);
    writer.Begin();
    for (const MetricsEvent& event : events) writer.Write(event);
    writer.End();
    return stream.str();
}

TEST(RawWriterTest, BeginsWithTheFieldNames) {
    std::ostringstream stream;
    RawWriter(stream, false).Begin();
    EXPECT_EQ(stream.str(), "timestamp,context_id,component_id,event_type,param1,param2\n");
}

TEST(RawWriterTest, WritesLines) {
    struct {
        MetricsEvent event;
        const char* line;
        const char* muted;
    } const cases[] = {
        {Create(5, 6), "2013-04-08 12:00:00,5,7,1,\"5\",\"6\"\n", "2012-11-01 22:26:51,0,7,1,\"0\",\"6\"\n"},
        {Construct(5, 6), "2013-04-08 12:00:00,6,7,2,\"5\",\"6\"\n",
         "2012-11-01 22:26:51,0,7,2,\"0\",\"6\"\n"},
        {Value(3, "a\"b,c\nd\re", 1.5), "2013-04-08 12:00:00,3,7,10,\"a\"b,c\\nde\",\"1.500000\"\n",
         "2012-11-01 22:26:51,0,7,10,\"a\"b,c\\nde\",\"1.500000\"\n"},
        {MetricsEvent(Opaque64(MetricsEvent::PackHeader(MetricsEventType::SetBits, 4095, 1)), UINT64_MAX, 0,
                      Opaque64(1), true),
         "0,18446744073709551615,4095,24,,\"true\"\n", "2012-11-01 22:26:51,0,4095,24,,\"true\"\n"},
    };
    for (const auto& [event, line, muted] : cases) {
        EXPECT_EQ(Raw(event, false), line);
        EXPECT_EQ(Raw(event, true), muted);
    }
}

TEST(XmlWriterTest, NestsScopesAndPlacesAttributesOnTheNextOne) {
    EXPECT_EQ(Xml({Attribute(1, "pid", 12), Attribute(1, "who", "a<b>&\"'\\\t\n\r\1"), OpenScope(1, "job"),
                   OpenScope(1, "step"), Attribute(1, "k", "v"), Value(1, "n", "x<y"), OpenScope(1, "inner"),
                   CloseScope(1, "inner"), CloseScope(1, "step"), Close(1), CloseScope(1, "job"),
                   CloseScope(1, "job")}),
              "<job pid=\"12\" who=\"a&lt;b&gt;&amp;&quot;&apos;\\\\&#x9;&#xA;\">\n"
              "  <step>\n"
              "    <n>x&lt;y</n>\n"
              "    <inner k=\"v\">\n"
              "    </inner>\n"
              "  </step>\n"
              "</job>\n");
}

TEST(XmlWriterTest, ClosingDiscardsAttributesAndUsesTheNameOfTheClosingEvent) {
    EXPECT_EQ(
        Xml({OpenScope(1, "a"), Attribute(1, "lost", 1), CloseScope(1, "b"), OpenScope(1, "c"),
             Attribute(1, "lost", 1), Make(MetricsEventType::DemuxSynthesized, 1, 0), OpenScope(1, "d")}),
        "<a>\n</b>\n<c>\n  <d>\n");
}

TEST(XmlWriterTest, ForcedClosureClosesAsManyAsItSaysAndNoMoreThanAreOpen) {
    const auto forced = [](std::int64_t depth) { return Make(MetricsEventType::DemuxSynthesized, 1, depth); };
    EXPECT_EQ(Xml({OpenScope(1, "a"), OpenScope(1, "b"), OpenScope(1, "c"), forced(2), CloseScope(1, "a")}),
              "<a>\n  <b>\n    <c>\n      <ForceCloseContextDepth>2</ForceCloseContextDepth>\n"
              "    </c>\n  </b>\n</a>\n");
    EXPECT_EQ(Xml({OpenScope(1, "a"), forced(9)}),
              "<a>\n  <ForceCloseContextDepth>9</ForceCloseContextDepth>\n</a>\n");
    EXPECT_EQ(Xml({forced(0), forced(-1), forced(std::int64_t{1} << 31)}), "");
}

TEST(BufferWriterTest, HoldsWhatWasWrittenBehindAHeader) {
    BufferWriter writer;
    writer.Begin();
    EXPECT_EQ(writer.Buffer()->Bytes().size(), 16U);
    const MetricsEvent events[] = {OpenScope(1, "a"), Value(1, "b", "text"), Close(1)};
    for (const MetricsEvent& event : events) writer.Write(event);
    writer.End();

    const auto buffer = writer.Buffer();
    const MetricsBufferHeader header = buffer->ReadHeader();
    EXPECT_EQ(header.magic, 0x4F5A4F42U);
    EXPECT_EQ(header.eventCount, 3U);
    EXPECT_EQ(header.eventBytes, buffer->Bytes().size() - 16);
    for (const MetricsEvent& event : events) {
        MetricsEvent read;
        read.Read(*buffer);
        EXPECT_EQ(Brief(read), Brief(event));
    }
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
    EXPECT_EQ(writer.Buffer()->Bytes(), expected);
}

TEST(NullStreamTest, SwallowsEverythingAndStaysGood) {
    basic_onullstream<char> stream;
    stream << "text" << 1 << std::endl;
    stream.put('x');
    EXPECT_TRUE(stream.good());
}

}  // namespace
}  // namespace Metrics
