// Looks for bytes in short texts, eight at a time: a call of the system's search costs more than most texts
// are long. For processors whose words begin with their lowest byte.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace StreamingXml {

namespace ByteSearch {

template <class Word>
std::uint64_t Load(const char* at) {
    Word word = 0;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// Not 0 when one of the word's bytes is 0.
constexpr std::uint64_t ZeroBytes(std::uint64_t word) {
    return (word - 0x0101010101010101) & ~word & 0x8080808080808080;
}

constexpr std::uint64_t Fill(char c) {
    return 0x0101010101010101 * static_cast<unsigned char>(c);
}

}  // namespace ByteSearch

// How many of the first bytes are beyond '?', as letters are; gives up where fewer than eight bytes are left.
inline std::size_t LettersAt(std::string_view text) {
    for (std::size_t at = 0; at + 8 <= text.size(); at += 8) {
        const auto word = ByteSearch::Load<std::uint64_t>(text.data() + at);
        const std::uint64_t others = ~(word | word << 1) & 0x8080808080808080;
        if (others != 0) return at + static_cast<std::size_t>(std::countr_zero(others)) / 8;
    }
    return text.size() / 8 * 8;
}

// Whether one of three characters is in the text.
inline bool HoldsAny(std::string_view text, char a, char b, char c) {
    using namespace ByteSearch;
    const auto holds = [fillA = Fill(a), fillB = Fill(b), fillC = Fill(c)](std::uint64_t word) {
        return (ZeroBytes(word ^ fillA) | ZeroBytes(word ^ fillB) | ZeroBytes(word ^ fillC)) != 0;
    };
    const char* const begin = text.data();
    const std::size_t size = text.size();
    if (size >= 8) {
        for (std::size_t at = 0; at + 8 <= size; at += 8)
            if (holds(Load<std::uint64_t>(begin + at))) return true;
        return holds(Load<std::uint64_t>(begin + size - 8));
    }
    // Both halves overlap where there are fewer than eight bytes.
    if (size >= 4) return holds(Load<std::uint32_t>(begin) << 32 | Load<std::uint32_t>(begin + size - 4));
    for (const char byte : text)
        if (byte == a || byte == b || byte == c) return true;
    return false;
}

}  // namespace StreamingXml
