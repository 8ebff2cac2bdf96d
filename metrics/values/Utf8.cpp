#include "metrics/values/Utf8.h"

#include "metrics/values/EightBytes.h"

namespace Metrics::detail {
namespace {

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// How many bytes a character that begins so has; 0 when none does.
std::size_t SizeAfter(unsigned char first) {
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first < 0xE0) return 2;
    if (first >= 0xE0 && first < 0xF0) return 3;
    return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

bool IsCharacter(std::uint32_t code, std::size_t size) {
    constexpr std::uint32_t kLowest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xD800 && code < 0xE000;
    return code >= kLowest[size] && code <= 0x10FFFF && !isSurrogate && code != 0xFFFE && code != 0xFFFF;
}

}  // namespace

Utf8Character FirstCharacter(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const Utf8Character byte{first, 1, false};
    const std::size_t size = SizeAfter(first);
    if (size == 1) return {first, 1, true};
    if (size == 0 || size > text.size()) return byte;
    std::uint32_t code = first & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if (!IsContinuation(text[i])) return byte;
        code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3FU);
    }
    if (!IsCharacter(code, size)) return byte;
    return {code, static_cast<std::uint8_t>(size), true};
}

char* WriteUtf8(char* out, std::uint32_t code) {
    const auto put = [&](std::uint32_t byte) { *out++ = static_cast<char>(byte); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xC0 | code >> 6);
        put(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        put(0xE0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3F));
        put(0x80 | (code & 0x3F));
    } else {
        put(0xF0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3F));
        put(0x80 | (code >> 6 & 0x3F));
        put(0x80 | (code & 0x3F));
    }
    return out;
}

bool IsWholeUtf8(std::string_view text) {
    while (!text.empty()) {
        const Utf8Character character = FirstCharacter(text);
        if (!character.isWhole) return false;
        text.remove_prefix(character.size);
    }
    return true;
}

std::size_t SizeCutTo(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text.size();
    for (std::size_t start = limit; start > 0 && limit - start < 3 && IsContinuation(text[start]);) {
        --start;
        const Utf8Character character = FirstCharacter(text.substr(start));
        if (character.isWhole && character.size > limit - start) return start;
    }
    return limit;
}

bool IsPrintableAscii(std::string_view text) {
    return EightBytes::HoldsForAll(text, [](std::uint64_t word) {
        return (EightBytes::AtLeast(word, ' ') & ~word & EightBytes::kHighs) == EightBytes::kHighs;
    });
}

bool IsAscii(std::string_view text) {
    return EightBytes::HoldsForAll(text, [](std::uint64_t word) { return (word & EightBytes::kHighs) == 0; });
}

}  // namespace Metrics::detail
