#include "metrics/rows/Text.h"

#include <algorithm>

namespace Metrics::detail {

std::string_view Trim(std::string_view text, std::string_view characters) {
    const auto first = text.find_first_not_of(characters);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

bool EqualIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return ToLower(a) == ToLower(b); });
}

std::vector<std::string_view> SplitOutsideQuotes(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    if (text.empty()) return pieces;
    bool quoted = false;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') quoted = !quoted;
        if (text[i] != separator || quoted) continue;
        pieces.push_back(text.substr(start, i - start));
        start = i + 1;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

}  // namespace Metrics::detail
