#pragma once

#include <cstdint>
#include <string>

namespace Metrics {

/// A further enable bit that a deployment names in its filters.xml.
struct MetricsFilter {
    std::int32_t value = 0;      ///< The bit's number as the file has it.
    unsigned long long bit = 0;  ///< The mask: 1 shifted left by the number's low six bits.
    std::string name;            ///< For display.
    std::string mnemonic;        ///< For configuration text.
    std::string symbol;          ///< What programs call it; not used by the library.
};

}  // namespace Metrics
