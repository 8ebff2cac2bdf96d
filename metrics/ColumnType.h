#pragma once

#include <cstdint>

namespace Metrics {

/// The value type of a column of a table.
enum class ColumnType : std::uint8_t {
    None = 0,  ///< Not given: text, as it was found.
    Integer = 1,
    Real = 2,
    Boolean = 3,
    String = 4,
    DateTime = 5,
};

}  // namespace Metrics
