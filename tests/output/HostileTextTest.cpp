// Names, attributes and values with any bytes, against rules written down a second time.
#include <random>

#include "metrics/output/RawWriter.h"
#include "metrics/output/XmlWriter.h"
#include "tests/output/OutputFixture.h"
#include "tests/support/Memory.h"

namespace Metrics {
namespace {

using namespace Testing;

std::string WithoutReturns(std::string text) {
    std::erase(text, '\r');
    return text;
}

std::string InXml(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '"')
            out += "&quot;";
        else if (c == '\'')
            out += "&apos;";
        else if (c == '\\')
            out += "\\\\";
        else if (c == '\t')
            out += "&#x9;";
        else if (c == '\n')
            out += "&#xA;";
        else if (byte >= 32)
            out += c;
    }
    return out;
}

std::string InRaw(const std::string& text) {
    std::string out;
    for (const char c : WithoutReturns(text)) out += c == '\n' ? "\\n" : std::string(1, c);
    return out;
}

void CheckText(const std::string& text) {
    std::ostringstream xml;
    std::ostringstream raw;
    XmlWriter xmlWriter(xml);
    RawWriter rawWriter(raw, false);
    const char* t = text.c_str();
    for (IWriter* writer : {static_cast<IWriter*>(&xmlWriter), static_cast<IWriter*>(&rawWriter)}) {
        writer->Write(Attribute(1, t, text));
        writer->Write(OpenScope(1, t));
        writer->Write(Value(1, t, text));
        writer->Write(Make(MetricsEventType::DemuxSynthesized, 1, 1));
        writer->End();
    }
    const std::string name = WithoutReturns(text);
    EXPECT_EQ(xml.str(), "<" + name + " " + name + "=\"" + InXml(text) + "\">\n  <" + name + ">" +
                             InXml(text) + "</" + name +
                             ">\n  <ForceCloseContextDepth>1</ForceCloseContextDepth>\n</" + name + ">\n");
    const std::string start = "2013-04-08 12:00:00,1,7,";
    const std::string q = "\"" + InRaw(text) + "\"";
    EXPECT_EQ(raw.str(), start + "11," + q + "," + q + "\n" + start + "6," + q + ",\"0\"\n" + start + "10," +
                             q + "," + q + "\n" + start + "4,\"1\",\"0\"\n");
}

TEST(HostileText, EveryByte) {
    for (int byte = 1; byte < 256; ++byte) {
        CheckText(std::string(1, static_cast<char>(byte)));
        CheckText("a" + std::string(3, static_cast<char>(byte)) + "b");
    }
    CheckText("");
    CheckText(std::string(100000, '<'));
}

TEST(HostileText, RandomBytes) {
    std::mt19937 random(4711);
    for (int repeat = 0; repeat < (Testing::kThreadSanitized ? 1000 : 100000) && !testing::Test::HasFailure();
         ++repeat) {
        std::string text(random() % 40, ' ');
        for (char& c : text) c = static_cast<char>(1 + random() % 255);
        CheckText(text);
    }
}

}  // namespace
}  // namespace Metrics
