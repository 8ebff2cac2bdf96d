#include "metrics/reader/LineCounter.h"

#include <algorithm>
#include <cstring>

namespace StreamingXml {
namespace {

constexpr std::uint64_t kOnes = 0x0101010101010101;

// A one in each byte that is a line feed.
std::uint64_t LineFeeds(std::uint64_t word) {
    constexpr std::uint64_t kLow = 0x7F * kOnes;
    const std::uint64_t zeroWhereFeed = word ^ ('\n' * kOnes);
    const std::uint64_t highWhereOther = ((zeroWhereFeed & kLow) + kLow) | zeroWhereFeed;
    return ~(highWhereOther | kLow) >> 7;
}

// Of at most 255 words of eight bytes, so that no byte of the sum overflows.
std::uint64_t CountBlock(const char* bytes, std::size_t words) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < words; ++i) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes + 8 * i, 8);
        sum += LineFeeds(word);
    }
    constexpr std::uint64_t kPairs = 0x00FF00FF00FF00FF;
    const std::uint64_t pairs = (sum & kPairs) + (sum >> 8 & kPairs);
    return pairs * 0x0001000100010001 >> 48;
}

}  // namespace

void LineCounter::Count(std::string_view bytes) {
    std::uint64_t feeds = 0;
    std::size_t at = 0;
    while (bytes.size() - at >= 8) {
        const std::size_t words = std::min<std::size_t>((bytes.size() - at) / 8, 255);
        feeds += CountBlock(bytes.data() + at, words);
        at += words * 8;
    }
    for (; at < bytes.size(); ++at) feeds += bytes[at] == '\n';
    here_.line += feeds;
    if (feeds == 0) {
        here_.column += bytes.size();
    } else {
        here_.column = bytes.size() - bytes.rfind('\n');
    }
}

}  // namespace StreamingXml
