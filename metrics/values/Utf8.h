#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Metrics::detail {

// What stands at the start of a text.
struct Utf8Character {
    std::uint32_t code;
    std::uint8_t size;  // in bytes
    bool isWhole;       // else one byte that begins no character of XML, `code` being its number
};

// The text must not be empty. Overlong forms, surrogates, U+FFFE, U+FFFF and what lies beyond U+10FFFF are no
// characters.
Utf8Character FirstCharacter(std::string_view text);

// Writes at most four bytes to `out`; returns their end.
char* WriteUtf8(char* out, std::uint32_t code);

bool IsWholeUtf8(std::string_view text);

// The most bytes, up to `limit`, that can be kept of the text without cutting a character in two.
std::size_t SizeCutTo(std::string_view text, std::size_t limit);

// Whether all bytes are from ' ' to 0x7F: they mean the same in every output, but for what markup reserves.
bool IsPrintableAscii(std::string_view text);
// Whether all bytes are below 0x80.
bool IsAscii(std::string_view text);

}  // namespace Metrics::detail
