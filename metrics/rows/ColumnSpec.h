#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/ColumnType.h"

namespace Metrics::detail {

// What is known of a column's expression; the bits of ColumnSpec::parts are among them.
namespace ExprFlags {
inline constexpr std::uint32_t kOptional = 0x1;
inline constexpr std::uint32_t kComputed = 0x4;
inline constexpr std::uint32_t kFilter = 0x8;
inline constexpr std::uint32_t kNumber = 0x10;
inline constexpr std::uint32_t kString = 0x20;
inline constexpr std::uint32_t kPrecedence = 0x80;
inline constexpr std::uint32_t kNamed = 0x100;
inline constexpr std::uint32_t kTyped = 0x200;
}  // namespace ExprFlags

inline constexpr std::uint32_t kDefaultPrecision = 10;
inline constexpr std::uint32_t kMaxPrecision = 20;

// The text of one column, "[name]:expression:type:precision", taken apart.
struct ColumnSpec {
    std::string expr;
    std::string name;
    ColumnType type = ColumnType::None;
    std::uint32_t precision = kDefaultPrecision;
    std::uint32_t parts = 0;
    std::string error;  // empty when the text is sound
};

// Never throws over the text: what is wrong with it stands in `error`.
ColumnSpec ParseColumnSpec(std::string_view text);

// The columns of a whole definition: what stands between ';' and line ends, trimmed, empty pieces left out.
std::vector<std::string> SplitDefinition(std::string_view definition);

// An expression without the modifiers around it.
struct ModifiedExpression {
    std::string_view text;
    std::uint32_t flags = 0;       // kOptional, kFilter, kPrecedence
    std::uint32_t precedence = 0;  // how many, 0 without kPrecedence
};

ModifiedExpression ReadModifiers(std::string_view expression);

}  // namespace Metrics::detail
