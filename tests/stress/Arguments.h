#pragma once

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace Metrics::Testing {

/// What a program was called with: names, each followed by a number.
struct Arguments {
    int count;
    char** values;

    std::uint64_t Get(std::string_view name, std::uint64_t otherwise) const {
        for (int i = 1; i + 1 < count; i += 2) {
            if (name == values[i]) return std::strtoull(values[i + 1], nullptr, 10);
        }
        return otherwise;
    }
};

}  // namespace Metrics::Testing
