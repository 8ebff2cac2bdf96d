#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/ColumnType.h"
#include "metrics/rows/Functions.h"

namespace Metrics::detail {

// One name of a path.
struct PathName {
    std::string name;
    bool any = false;  // "*": whatever the name

    bool operator==(const PathName&) const = default;
};

// What an expression asks of an element: its text, an attribute or a fact about its place. The path stands
// without the leading "*" that matches at any depth, so that of "*" alone is empty.
struct Operand {
    enum class Kind : std::uint8_t { Text, Attribute, Fact };

    Kind kind = Kind::Text;
    Function fact = Function::End;
    std::uint32_t number = 0;  // the second argument of a fact
    std::string attribute;
    std::vector<PathName> path;

    bool operator==(const Operand&) const = default;
};

// An expression in postfix order: each step leaves one value on a stack, a Scalar takes two off it first.
struct Step {
    enum class Kind : std::uint8_t { Number, Text, Operand, RowNumber, Scalar, Aggregate };

    Kind kind;
    Function function = Function::End;  // of a Scalar
    std::uint32_t index = 0;            // into the texts (Number, Text), the operands or the aggregates
    double number = 0;
};
using Program = std::vector<Step>;

struct AggregateCall {
    Function function;
    Program x;
    Program y;  // used by the two-argument aggregates only
};

// What the parser makes of one column. The indexes in the programs are the column's own.
struct Expression {
    Program program;
    std::vector<Operand> operands;
    std::vector<std::string> texts;
    std::vector<AggregateCall> aggregates;
    ColumnType result = ColumnType::None;  // of the outermost operator or function
    std::uint32_t flags = 0;               // kComputed, kNumber, kString
};

inline constexpr int kMaxNesting = 200;
inline constexpr std::uint32_t kMaxColumns = 1000;

// Whether the character at `i`, known to stand outside quotes, is an operator there.
bool IsOperatorAt(std::string_view text, std::size_t i);

// Whether an expression is more than one operand.
bool IsComputed(std::string_view text);

// Whether an operand is a number literal: a digit first, or after '-', '.' or both.
bool LooksLikeNumber(std::string_view text);

// The names of a path. Throws RowDefinitionError when there is none.
std::vector<PathName> ParsePath(std::string_view text);

// `column` is the whole column, for messages. Throws RowDefinitionError.
Expression ParseExpression(std::string_view text, std::string_view column);

}  // namespace Metrics::detail
