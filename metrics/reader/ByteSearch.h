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

// Not 0 when one of the word's bytes is 0; then its lowest bit is in the first of those.
constexpr std::uint64_t ZeroBytes(std::uint64_t word) {
    return (word - 0x0101010101010101) & ~word & 0x8080808080808080;
}

constexpr std::uint64_t Fill(char c) {
    return 0x0101010101010101 * static_cast<unsigned char>(c);
}

}  // namespace ByteSearch

// Where the first such byte is, or `end`.
inline const char* Find(char c, const char* at, const char* end) {
    const void* found = at == end ? nullptr : std::memchr(at, c, static_cast<std::size_t>(end - at));
    return found != nullptr ? static_cast<const char*>(found) : end;
}

// The same, made for one that is near.
inline const char* FindNear(char c, const char* at, const char* end) {
    using namespace ByteSearch;
    constexpr std::ptrdiff_t kNear = 32;
    for (const char* const far = end - at > kNear ? at + kNear : end; far - at >= 8; at += 8) {
        const std::uint64_t found = ZeroBytes(Load<std::uint64_t>(at) ^ Fill(c));
        if (found != 0) return at + std::countr_zero(found) / 8;
    }
    return Find(c, at, end);
}

// Equal only for equal texts, among those of one length up to eight; a good hash of others.
inline std::uint64_t Digest(std::string_view text) {
    using namespace ByteSearch;
    const char* const begin = text.data();
    const std::size_t size = text.size();
    if (size >= 8)
        return Load<std::uint64_t>(begin) + 31 * Load<std::uint64_t>(begin + size - 8) * (size > 8);
    if (size >= 4) return Load<std::uint32_t>(begin) << 32 | Load<std::uint32_t>(begin + size - 4);
    if (size == 0) return 0;
    const auto byte = [&](std::size_t at) { return std::uint64_t{static_cast<unsigned char>(begin[at])}; };
    return byte(0) << 16 | byte(size / 2) << 8 | byte(size - 1);
}

// How many of the first bytes are beyond '?', as letters are; gives up where fewer than eight bytes are left.
inline std::size_t LettersAt(std::string_view text) {
    for (std::size_t at = 0; at + 8 <= text.size(); at += 8) {
        const auto word = ByteSearch::Load<std::uint64_t>(text.data() + at);
        const std::uint64_t others = ~(word | word << 1) & 0x8080808080808080;
        if (others != 0) return at + static_cast<std::size_t>(std::countr_zero(others)) / 8;
    }
    return text.size() / 8 * 8;
}

// Whether one of the characters is in the text.
template <class... Char>
bool HoldsAny(std::string_view text, Char... wanted) {
    using namespace ByteSearch;
    const auto holds = [=](std::uint64_t word) { return (ZeroBytes(word ^ Fill(wanted)) | ...) != 0; };
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
        if (((byte == wanted) || ...)) return true;
    return false;
}

// The same of a text whose digest is known.
inline bool Holds(char wanted, std::string_view text, std::uint64_t digest) {
    if (text.size() > 8) return HoldsAny(text, wanted);
    return ByteSearch::ZeroBytes(digest ^ ByteSearch::Fill(wanted)) != 0;
}

// Whether the two stand one behind the other somewhere. For short texts.
inline bool HoldsPair(char first, char second, std::string_view text) {
    for (std::size_t at = 1; at < text.size(); ++at)
        if (text[at] == second && text[at - 1] == first) return true;
    return false;
}

}  // namespace StreamingXml
