// What comes to the reader from outside: any bytes, in any pieces.
#include "metrics/reader/XmlScanner.h"

#include <gtest/gtest.h>

#include <random>

#include "metrics/RowDefinitionError.h"
#include "metrics/reader/XmlText.h"

namespace StreamingXml {
namespace {

// Writes down what it is told.
class Log final : public XmlHandler {
  public:
    Log() { wantsText_ = true; }

    void OpenElement(std::string_view name, std::span<const XmlAttribute> attributes,
                     std::uint64_t line) override {
        Break();
        ++depth_;
        text.append("<").append(name);
        for (const auto& [key, value] : attributes) text.append(" ").append(key).append("=").append(value);
        if (line != 0) text += " @" + std::to_string(line);
        text += ">\n";
    }
    void Text(std::string_view piece) override { pending_ += piece; }
    bool CloseElement() override {
        Break();
        if (depth_ == 0) return false;
        --depth_;
        text += "</>\n";
        return true;
    }

    std::string text;

  private:
    // Pieces of text are one text, wherever the input was cut.
    void Break() {
        const std::string_view trimmed = TrimBlanks(pending_);
        if (!trimmed.empty()) text.append(trimmed).append("\n");
        pending_.clear();
    }

    std::string pending_;
    int depth_ = 0;
};

std::string Scan(std::string_view input, std::size_t chunk, bool lines = false, std::uint64_t skipped = 0) {
    Log log;
    XmlScanner scanner(log);
    if (lines) scanner.GiveLines();
    scanner.Lines().SkipLines(skipped);
    try {
        while (!input.empty()) {
            const std::string piece(input.substr(0, chunk));
            scanner.Feed(piece);
            input.remove_prefix(piece.size());
        }
        scanner.End();
    } catch (const Metrics::RowDefinitionError& error) {
        const auto [line, column] = scanner.TagPosition();
        if (lines) log.text += std::to_string(line) + ":" + std::to_string(column);
        log.text += std::string("! ") + error.what();
    }
    return log.text;
}

constexpr std::string_view kLimit =
    "! Error: either input is not an XML file or an XML tag exceeds 65536 characters.";

TEST(XmlScanner, ATagMayHaveTheCapacityAndNoMore) {
    for (const std::size_t chunk : {1UL, 5UL, 1000UL, 65536UL, 1000000UL}) {
        const std::string fits(65534, 'n');
        EXPECT_EQ(Scan("<" + fits + ">", chunk), "<" + fits + ">\n");
        EXPECT_EQ(Scan("<" + fits + "n>", chunk), kLimit) << chunk;
        EXPECT_EQ(Scan("<a>" + std::string(1000, ' ') + "<b x=\"" + std::string(70000, '>') + "\"/>", chunk),
                  "<a>\n" + std::string(kLimit));
        EXPECT_EQ(Scan(std::string(70000, '<'), chunk), kLimit);
    }
}

TEST(XmlScanner, WhatIsSkippedMayBeLong) {
    const std::string filler(300000, '-');
    for (const std::string& markup :
         {"<!--" + filler + " -->", "<?" + filler + "?>", "<!DOCTYPE " + filler + ">"})
        EXPECT_EQ(Scan("<a>" + markup + "</a>", 4096), "<a>\n</>\n");
    EXPECT_EQ(Scan("<a><![CDATA[" + filler + "]]]]></a>", 4096), "<a>\n" + filler + "]]\n</>\n");
}

TEST(XmlScanner, LinesAreCountedPast32Bits) {
    for (const std::size_t chunk : {1UL, 3UL, 4UL, 100UL}) {
        EXPECT_EQ(Scan("<a>\n\n<b\nx='\n'/>\n<!--\n-->\n<c/>", chunk, true),
                  "<a @1>\n<b x=\n @3>\n</>\n<c @8>\n</>\n")
            << chunk;
        EXPECT_EQ(Scan("\n\n<a/>", chunk, true, 65534), "<a @65537>\n</>\n");
        EXPECT_EQ(Scan("\n\n<a/>", chunk, true, 4294967294), "<a @4294967297>\n</>\n");
        EXPECT_EQ(Scan("<a>\n text\n  </a></b\n >", chunk, true),
                  "<a @1>\ntext\n</>\n3:7! Error: invalid XML tag: /b\n ");
    }
}

// Of each input: cut anywhere it neither crashes nor hangs, and pieces make no difference.
TEST(XmlScanner, PiecesMakeNoDifference) {
    std::mt19937 random(7);
    const std::string_view alphabet = "<<<>>>/ab =\"'!?-[]CDATA&;\\\n\t \0\xFF";
    for (int round = 0; round < 4000; ++round) {
        std::string input;
        for (std::size_t i = random() % 60; i > 0; --i) {
            switch (random() % 16) {
                case 0: input += "<a x='1'>"; break;
                case 1: input += "</a>"; break;
                case 2: input += "<!-- -->"; break;
                case 3: input += "<![CDATA[]]>"; break;
                case 4: input += "<!DOCTYPE a ["; break;
                case 5: input += "<abc d=\""; break;
                case 6: input += "\" e=\""; break;
                case 7: input += "\">"; break;
                case 8: input += "\"/>"; break;
                default: input += alphabet[random() % alphabet.size()];
            }
        }
        const std::string whole = Scan(input, input.size() + 1, true);
        for (std::size_t chunk = 1; chunk <= 5; ++chunk) ASSERT_EQ(Scan(input, chunk, true), whole) << input;
    }
}

TEST(XmlScanner, EveryByteIsText) {
    std::string bytes = "<a>x";
    for (int c = 0; c < 256; ++c)
        if (c != '<') bytes += static_cast<char>(c);
    EXPECT_EQ(Scan(bytes + "</a>", 7), "<a>\n" + bytes.substr(3) + "\n</>\n");
}

}  // namespace
}  // namespace StreamingXml
