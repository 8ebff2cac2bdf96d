// The scanner beside expat: the same bytes, handlers that do nothing.
#include <benchmark/benchmark.h>
#include <expat.h>

#include <string>

#include "metrics/reader/XmlScanner.h"

namespace {

constexpr int kPieces = 100;  // of one MiB each

std::string MakeXml() {
    std::string xml;
    for (int i = 0; xml.size() < 1 << 20; ++i) {
        const std::string number = std::to_string(i);
        xml += "  <parse file=\"data/" + number + ".txt\">\n    <elapsed>0.00" + number +
               "</elapsed>\n    <mem>" + number +
               "</mem>\n    <read>\n      <elapsed>0.1</elapsed>\n    </read>\n  </parse>\n";
    }
    return xml;
}

class Nothing final : public StreamingXml::XmlHandler {
  public:
    void OpenElement(std::string_view, std::span<const StreamingXml::XmlAttribute>, std::uint64_t) override {}
    void Text(std::string_view) override {}
    bool CloseElement() override { return true; }
};

void Scanner(benchmark::State& state) {
    const std::string xml = MakeXml();
    for (auto _ : state) {
        Nothing handler;
        StreamingXml::XmlScanner scanner(handler);
        scanner.Feed("<work>");
        for (int i = 0; i < kPieces; ++i) scanner.Feed(xml);
        scanner.Feed("</work>");
        scanner.End();
    }
    state.SetBytesProcessed(state.iterations() * kPieces * static_cast<std::int64_t>(xml.size()));
}
BENCHMARK(Scanner)->Unit(benchmark::kMillisecond);

void Expat(benchmark::State& state) {
    const std::string xml = MakeXml();
    const auto feed = [](XML_Parser parser, std::string_view text, bool last) {
        return XML_Parse(parser, text.data(), static_cast<int>(text.size()), last) == XML_STATUS_OK;
    };
    for (auto _ : state) {
        const XML_Parser parser = XML_ParserCreate(nullptr);
        XML_SetElementHandler(
            parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
        XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
        bool good = feed(parser, "<work>", false);
        for (int i = 0; i < kPieces; ++i) good = good && feed(parser, xml, false);
        if (!good || !feed(parser, "</work>", true)) state.SkipWithError("expat cannot read it");
        XML_ParserFree(parser);
    }
    state.SetBytesProcessed(state.iterations() * kPieces * static_cast<std::int64_t>(xml.size()));
}
BENCHMARK(Expat)->Unit(benchmark::kMillisecond);

}  // namespace
