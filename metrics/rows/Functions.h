#pragma once

#include <cstdint>
#include <string_view>

#include "metrics/ColumnType.h"

namespace Metrics::detail {

// Operators and functions by their numbers. The scalar and the aggregate minimum differ.
enum class Function : std::uint8_t {
    End = 1,
    Add = 2,
    Subtract = 3,
    Multiply = 4,
    Divide = 5,
    Remainder = 7,
    Min = 8,
    Max = 9,
    Or = 10,
    And = 11,
    Sqrt = 12,
    Pow = 13,
    Log = 14,
    Exp = 15,
    Abs = 16,
    Round = 17,
    Floor = 18,
    Ceil = 19,
    Pi = 20,
    E = 21,
    RowNumber = 22,
    Equal = 23,
    NotEqual = 24,
    LessEqual = 25,
    GreaterEqual = 26,
    Less = 27,
    Greater = 28,
    Sum = 29,
    AggregateMin = 30,
    AggregateMax = 31,
    Mean = 32,
    Deviation = 33,
    Variance = 34,
    Covariance = 35,
    Correlation = 36,
    Count = 37,
    Path = 38,
    Id = 39,
    PivotPath = 40,
    Scopes = 41,
    Depth = 42,
    Attribute = 43,
    NodeName = 44,
    NodeNumber = 45,
    NodeEnd = 46,
    LineNumber = 47,
};

// The bits of a function's kind. The table also tells the end marker (0x10), comparisons (0x20), logical
// operators (0x40) and what is made of or gives texts and truth (0x800), which nobody asks for.
namespace FunctionKind {
inline constexpr std::uint32_t kNoArgument = 0x1;
inline constexpr std::uint32_t kOneArgument = 0x2;
inline constexpr std::uint32_t kTwoArguments = 0x4;
inline constexpr std::uint32_t kInfix = 0x8;
inline constexpr std::uint32_t kAggregate = 0x80;
inline constexpr std::uint32_t kNode = 0x100;
inline constexpr std::uint32_t kNodeEnd = 0x200;
inline constexpr std::uint32_t kPathArgument = 0x400;
inline constexpr std::uint32_t kSecondDefaults = 0x1000;
}  // namespace FunctionKind

struct FunctionEntry {
    std::string_view name;
    Function id;
    ColumnType result;
    std::uint32_t kind;
};

// The first entry of that name, in any case; nullptr when there is none.
const FunctionEntry* FindFunction(std::string_view name);

// The infix operator with the longest name that `text` begins with; nullptr when there is none.
const FunctionEntry* FindOperator(std::string_view text);

// The first entry with that number.
const FunctionEntry& FunctionOf(Function id);

// How tightly an infix operator binds; more is tighter.
int PrecedenceOf(Function op);

}  // namespace Metrics::detail
