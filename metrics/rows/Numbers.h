#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Text to number and back, the same under every locale.
namespace Metrics::detail {

// The number that the text begins with, after white space; 0 when there is none. Out of range the nearest
// end of the range, as the C functions have it. "inf" and "nan" are reals as a whole text only, with or
// without a sign.
std::int64_t LeadingInteger(std::string_view text);
double LeadingReal(std::string_view text);

// What a text is where a number is wanted: as above, but "true" is 1, in any case.
bool IsTrueText(std::string_view text);
double NumberIn(std::string_view text);

// Whether the whole text, but for white space around it, is one number.
bool IsNumber(std::string_view text, double& value);
// The same for an integer that fits.
bool IsInteger(std::string_view text, std::int64_t& value);

// Truncated; outside the range (and for not-a-number) the smallest value.
std::int32_t ToInt32(double value);
// Truncated and held inside the range; not-a-number is 0.
std::int64_t ToInt64(double value);

// With `precision` decimals, less the zeros at the end: one always goes first while the text has three
// characters and no point stands before it. That cuts whole numbers without decimals too, on purpose.
void AppendReal(std::string& out, double value, unsigned precision);

// AppendReal(NumberIn(text)). Most numbers only pass through: their digits are the result.
void AppendRealText(std::string& out, std::string_view text, unsigned precision);

void AppendInteger(std::string& out, std::int64_t value);
// The same with the integer that it begins with.
void AppendIntegerText(std::string& out, std::string_view text);

}  // namespace Metrics::detail
