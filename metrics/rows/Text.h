#pragma once

#include <string_view>
#include <vector>

// Small text helpers of the row language. ASCII only: nothing here asks the locale.
namespace Metrics::detail {

std::string_view Trim(std::string_view text, std::string_view characters = " \t\r\n\v\f");

bool EqualIgnoringCase(std::string_view left, std::string_view right);

// The pieces between the separators that stand outside double quotes. Quotes stay in the pieces; an empty
// text has no pieces.
std::vector<std::string_view> SplitOutsideQuotes(std::string_view text, char separator);

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr char ToLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

}  // namespace Metrics::detail
