#include "metrics/rows/ColumnSpec.h"
#include "metrics/rows/Numbers.h"
#include "metrics/rows/Text.h"

namespace Metrics::detail {
namespace {

void Strip(ModifiedExpression& expression, char modifier, std::uint32_t bit) {
    std::string_view& text = expression.text;
    if (text.starts_with(modifier)) {
        text.remove_prefix(1);
        expression.flags |= bit;
    }
    if (text.ends_with(modifier)) {
        text.remove_suffix(1);
        expression.flags |= bit;
    }
}

// "x'" is 1, "x''" is 2, "x'3" is 3, "x''3" is 4.
void StripPrecedence(ModifiedExpression& expression) {
    std::string_view rest = expression.text;
    while (!rest.empty() && IsDigit(rest.back())) rest.remove_suffix(1);
    if (!rest.ends_with('\'')) return;
    const std::int64_t number = LeadingInteger(expression.text.substr(rest.size()));
    std::uint32_t quotes = 0;
    for (; rest.ends_with('\''); rest.remove_suffix(1)) ++quotes;
    expression.text = rest;
    expression.flags |= ExprFlags::kPrecedence;
    const auto counted = static_cast<std::uint32_t>(std::min<std::int64_t>(number, INT32_MAX));
    expression.precedence = number >= 1 ? counted + quotes - 1 : quotes;
}

}  // namespace

ModifiedExpression ReadModifiers(std::string_view expression) {
    ModifiedExpression result{expression};
    std::uint32_t before = 0;
    do {
        before = result.flags;
        Strip(result, '?', ExprFlags::kOptional);
        Strip(result, ' ', 0);
        Strip(result, '#', ExprFlags::kFilter);
    } while (result.flags != before);
    StripPrecedence(result);
    result.text = Trim(result.text);
    return result;
}

}  // namespace Metrics::detail
