#pragma once

#include <string>

namespace Metrics::Testing {

/// How often `what` stands in the text.
inline std::size_t Count(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
    return count;
}

}  // namespace Metrics::Testing
