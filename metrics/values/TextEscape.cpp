#include "metrics/values/TextEscape.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "metrics/MetricsValue.h"
#include "metrics/values/EightBytes.h"

namespace Metrics::detail {

namespace {

using EightBytes::kHighs;
using EightBytes::kOnes;

// A text is escaped piece by piece, so that the room asked for stays within a few kilobytes of what it needs.
constexpr std::size_t kPiece = 512;
constexpr std::size_t kMaxReplacement = 6;  // characters of &apos; and &quot;

constexpr unsigned kCsv = MetricsValue::CsvComma | MetricsValue::CsvPipe;

// What makes a character special, one bit each.
enum Class : std::uint8_t { kReturn = 1, kLineFeed = 2, kQuote = 4, kComma = 8, kPipe = 16, kXml = 32 };

constexpr std::array<std::uint8_t, 256> MakeClasses() {
    std::array<std::uint8_t, 256> classes = {};
    for (unsigned control = 1; control < 32; ++control) classes[control] = kXml;
    for (char c : std::string_view("&'<>\\\"")) classes[static_cast<unsigned char>(c)] = kXml;
    classes['\r'] |= kReturn;
    classes['\n'] |= kLineFeed;
    classes['"'] |= kQuote;
    classes[','] |= kComma;
    classes['|'] |= kPipe;
    return classes;
}

constexpr std::array<std::uint8_t, 256> kClasses = MakeClasses();

bool HasClass(char c, unsigned classes) {
    return (kClasses[static_cast<unsigned char>(c)] & classes) != 0;
}

template <typename Char>
bool NeedsQuotes(std::basic_string_view<Char> text, unsigned flags) {
    if ((flags & MetricsValue::AlwaysQuote) != 0) return true;
    if ((flags & kCsv) == 0) return false;
    unsigned classes = kQuote | ((flags & MetricsValue::CsvComma) != 0 ? kComma : kPipe);
    if ((flags & MetricsValue::EscapeNewlines) == 0) classes |= kLineFeed;
    return std::any_of(text.begin(), text.end(),
                       [classes](Char c) { return HasClass(static_cast<char>(c), classes); });
}

unsigned ReplacedClasses(unsigned flags) {
    unsigned classes = kReturn;
    if ((flags & MetricsValue::EscapeNewlines) != 0) classes |= kLineFeed;
    if ((flags & MetricsValue::XmlEscape) != 0)
        classes |= kXml;
    else if ((flags & kCsv) != 0)
        classes |= kQuote;
    return classes;
}

std::string_view XmlReplacement(char c) {
    switch (c) {
        case '&': return "&amp;";
        case '\'': return "&apos;";
        case '<': return "&lt;";
        case '>': return "&gt;";
        case '\\': return "\\\\";
        case '"': return "&quot;";
        case '\t': return "&#x9;";
        case '\n': return "&#xA;";
        default: return {};
    }
}

std::string_view Replacement(char c, unsigned flags) {
    if (c == '\r') return {};
    if (c == '\n' && (flags & MetricsValue::EscapeNewlines) != 0) return "\\n";
    return (flags & MetricsValue::XmlEscape) != 0 ? XmlReplacement(c) : "\"\"";
}

// Not 0 when one of the bytes is 0.
std::uint64_t ZeroBytes(std::uint64_t word) {
    return (word - kOnes) & ~word & kHighs;
}

// Whether one of the characters may be replaced: a control character or a quote; in XML also one of & \' < >
// \.
bool HoldsSuspects(std::uint64_t word, bool xml) {
    std::uint64_t suspects = ((word - 0x20 * kOnes) & ~word & kHighs) | ZeroBytes(word ^ '"' * kOnes);
    if (xml) {
        suspects |= ZeroBytes((word | kOnes) ^ '\'' * kOnes) | ZeroBytes((word | 2 * kOnes) ^ '>' * kOnes) |
                    ZeroBytes(word ^ '\\' * kOnes);
    }
    return suspects != 0;
}

// Copies eight characters at a time while none of them may be replaced; returns how many it copied. Names and
// paths mostly go through here whole.
std::size_t CopyPlain(char* to, const char* from, std::size_t size, bool xml) {
    std::size_t copied = 0;
    for (; size - copied >= sizeof(std::uint64_t); copied += sizeof(std::uint64_t)) {
        const auto block = EightBytes::Load<std::uint64_t>(from + copied);
        if (HoldsSuspects(block, xml)) break;
        std::memcpy(to + copied, &block, sizeof block);
    }
    return copied;
}

// `to` has room for kMaxReplacement times the text.
template <typename Char>
char* Escape(char* to, std::basic_string_view<Char> text, unsigned flags) {
    const unsigned replaced = ReplacedClasses(flags);
    if constexpr (sizeof(Char) == 1) {
        const bool xml = (flags & MetricsValue::XmlEscape) != 0;
        const std::size_t copied = CopyPlain(to, text.data(), text.size(), xml);
        to += copied;
        text.remove_prefix(copied);
    }
    for (const Char wide : text) {
        const char c = static_cast<char>(wide);
        if (!HasClass(c, replaced)) {
            *to++ = c;
            continue;
        }
        const std::string_view replacement = Replacement(c, flags);
        to += replacement.copy(to, replacement.size());
    }
    return to;
}

template <typename Char>
void AppendPieces(TextBuffer& out, std::basic_string_view<Char> text, unsigned flags) {
    const bool quoted = NeedsQuotes(text, flags);
    if (quoted) out.Append('"');
    for (; !text.empty(); text.remove_prefix(std::min(text.size(), kPiece))) {
        const auto piece = text.substr(0, kPiece);
        out.Commit(Escape(out.Room(kMaxReplacement * piece.size()), piece, flags));
    }
    if (quoted) out.Append('"');
}

}  // namespace

void AppendEscaped(TextBuffer& out, std::string_view text, unsigned flags) {
    AppendPieces(out, text, flags);
}

void AppendEscaped(TextBuffer& out, std::wstring_view text, unsigned flags) {
    AppendPieces(out, text, flags);
}

}  // namespace Metrics::detail
