#include "examples/wordcount/Utf8.h"

#include <cstddef>
#include <cstdint>

namespace WordCount {

namespace {

// The length that the first byte of a character announces, 0 for a byte that cannot be first.
std::size_t AnnouncedLength(unsigned char first) {
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first < 0xE0) return 2;
    if (first >= 0xE0 && first < 0xF0) return 3;
    if (first >= 0xF0 && first < 0xF5) return 4;
    return 0;
}

bool IsXmlCharacter(std::uint32_t code, std::size_t length) {
    if (length == 1) return code >= 0x20;
    if (length == 3) return code >= 0x800 && (code < 0xD800 || code > 0xDFFF) && code < 0xFFFE;
    return length != 4 || (code >= 0x10000 && code <= 0x10FFFF);
}

// The length of the character at `position`, 0 when none stands there.
std::size_t CharacterLength(const std::string& text, std::size_t position) {
    const auto first = static_cast<unsigned char>(text[position]);
    const std::size_t length = AnnouncedLength(first);
    if (length == 0 || length > text.size() - position) return 0;
    std::uint32_t code = length == 1 ? first : first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[position + i]);
        if ((byte & 0xC0) != 0x80) return 0;
        code = code << 6 | (byte & 0x3FU);
    }
    return IsXmlCharacter(code, length) ? length : 0;
}

}  // namespace

std::string ValidUtf8(std::string text) {
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t length = CharacterLength(text, position);
        if (length == 0) text[position] = '?';
        position += length == 0 ? 1 : length;
    }
    return text;
}

}  // namespace WordCount
