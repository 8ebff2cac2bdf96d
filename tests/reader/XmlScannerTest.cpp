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
        for (const XmlAttribute& each : attributes)
            text.append(" ").append(each.name).append("=").append(each.value);
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
    scanner.TrackLines();
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
        log.text += std::to_string(line) + ":" + std::to_string(column) + " " + error.what();
    }
    return log.text;
}

void ExpectWhateverThePieces(std::string_view input, const std::string& expected, bool lines = false,
                             std::uint64_t skipped = 0) {
    for (const std::size_t chunk : {1UL, 3UL, 4UL, 5UL, 100UL, 1000UL, 65536UL, 1000000UL})
        EXPECT_EQ(Scan(input, chunk, lines, skipped), expected) << "pieces of " << chunk;
}

TEST(XmlScanner, ATagMayHaveTheCapacityAndNoMore) {
    const std::string limit =
        " Error: either input is not an XML file or an XML tag exceeds 65536 characters.";
    const std::string fits(65534, 'n');
    ExpectWhateverThePieces("<" + fits + ">", "<" + fits + ">\n");
    ExpectWhateverThePieces("<" + fits + "n>", "1:1" + limit);
    ExpectWhateverThePieces("<a>" + std::string(1000, ' ') + "<b x=\"" + std::string(70000, '>') + "\"/>",
                            "<a>\n1:1004" + limit);
    ExpectWhateverThePieces(std::string(70000, '<'), "1:1" + limit);
}

TEST(XmlScanner, WhatIsSkippedMayBeLongAndEveryByteIsText) {
    const std::string filler(300000, '-');
    for (const std::string& markup :
         {"<!--" + filler + " -->", "<?" + filler + "?>", "<!DOCTYPE " + filler + ">"})
        ExpectWhateverThePieces("<a>" + markup + "</a>", "<a>\n</>\n");
    ExpectWhateverThePieces("<a><![CDATA[" + filler + "]]]]></a>", "<a>\n" + filler + "]]\n</>\n");
    std::string bytes = "x";
    for (int c = 0; c < 256; ++c)
        if (c != '<') bytes += static_cast<char>(c);
    ExpectWhateverThePieces("<a>" + bytes + "</a>", "<a>\n" + bytes + "\n</>\n");
}

TEST(XmlScanner, LinesAreCountedPast32Bits) {
    ExpectWhateverThePieces("<a>\n\n<b\nx='\n'/>\n<!--\n-->\n<c/>", "<a @1>\n<b x=\n @3>\n</>\n<c @8>\n</>\n",
                            true);
    ExpectWhateverThePieces(std::string(5000, '\n') + "<a/>", "<a @5001>\n</>\n", true);
    ExpectWhateverThePieces("\n\n<a/>", "<a @65537>\n</>\n", true, 65534);
    ExpectWhateverThePieces("\n\n<a/>", "<a @4294967297>\n</>\n", true, 4294967294);
    ExpectWhateverThePieces("<a>\n text\n  </a></b\n >",
                            "<a @1>\ntext\n</>\n3:7 Error: invalid XML tag: /b\n ", true);
}

// Of each input: cut anywhere it neither crashes nor hangs, and pieces make no difference.
TEST(XmlScanner, PiecesMakeNoDifference) {
    std::mt19937 random(7);
    const std::string_view alphabet = "<<<>>>/ab =\"'!?-[]CDATA&;\\\n\t \0\xFF";
    const char* const pieces[] = {"<a x='1'>", "</a>",    "<!-- -->", "<![CDATA[]]>", "<!DOCTYPE a [",
                                  "<abc d=\"", "\" e=\"", "\">",      "\"/>"};
    for (int round = 0; round < 4000; ++round) {
        std::string input;
        for (std::size_t i = random() % 60; i > 0; --i) {
            const std::size_t piece = random() % 16;
            if (piece < std::size(pieces))
                input += pieces[piece];
            else
                input += alphabet[random() % alphabet.size()];
        }
        const std::string whole = Scan(input, input.size() + 1, round % 2 == 0);
        for (std::size_t chunk = 1; chunk <= 5; ++chunk)
            ASSERT_EQ(Scan(input, chunk, round % 2 == 0), whole) << input;
    }
}

}  // namespace
}  // namespace StreamingXml
