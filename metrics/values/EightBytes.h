// Tests on the bytes of short texts, eight at a time.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace Metrics::detail::EightBytes {

inline constexpr std::uint64_t kOnes = 0x0101010101010101;
inline constexpr std::uint64_t kHighs = 0x80 * kOnes;

// Each of these answers with the highest bit of each byte, which is meaningful where no byte of the word has
// that bit itself.
constexpr std::uint64_t AtLeast(std::uint64_t word, unsigned char c) {
    return (word + (0x80U - c) * kOnes) & kHighs;
}
constexpr std::uint64_t Between(std::uint64_t word, unsigned char first, unsigned char last) {
    return AtLeast(word, first) & ~AtLeast(word, static_cast<unsigned char>(last + 1));
}
constexpr std::uint64_t Are(std::uint64_t word, unsigned char c) {
    return ~AtLeast(word ^ c * kOnes, 1) & kHighs;
}

template <class Word>
std::uint64_t Load(const char* at) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// Whether `fits` holds for all words of the text: some bytes come twice, and blanks beside those of a very
// short one.
template <class Test>
bool HoldsForAll(std::string_view text, Test fits) {
    const char* const begin = text.data();
    const std::size_t size = text.size();
    if (size >= 8) {
        for (std::size_t at = 0; at + 8 <= size; at += 8)
            if (!fits(Load<std::uint64_t>(begin + at))) return false;
        return fits(Load<std::uint64_t>(begin + size - 8));
    }
    if (size >= 4) return fits(Load<std::uint32_t>(begin) << 32 | Load<std::uint32_t>(begin + size - 4));
    if (size == 0) return true;
    const auto byte = [&](std::size_t at) { return std::uint64_t{static_cast<unsigned char>(begin[at])}; };
    return fits((0x20 * kOnes) << 24 | byte(0) << 16 | byte(size / 2) << 8 | byte(size - 1));
}

}  // namespace Metrics::detail::EightBytes
