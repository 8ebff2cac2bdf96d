#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace Metrics::Testing {

inline std::string TextOf(const std::string& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// How often `what` stands in the text.
inline std::size_t Count(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
    return count;
}

}  // namespace Metrics::Testing
