#include "metrics/rows/Numbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "metrics/rows/Text.h"

namespace Metrics::detail {
namespace {

constexpr std::string_view kSpace = " \t\r\n\v\f";

// std::from_chars takes neither white space nor a plus sign. "+-1" is no number.
std::string_view SkipToNumber(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kSpace), text.size()));
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    return text;
}

// What is out of range is so large or so small that its first significant digit and its exponent tell.
double OutOfRange(std::string_view text) {
    const bool negative = text.front() == '-';
    const auto exponentAt = text.find_first_of("eE");
    const std::string_view digits = text.substr(0, exponentAt);
    std::int64_t exponent = exponentAt == text.npos ? 0 : LeadingInteger(text.substr(exponentAt + 1));
    const auto point = std::min(digits.find('.'), digits.size());
    const auto first = std::min(digits.find_first_of("123456789"), digits.size());
    if (std::abs(exponent) < std::int64_t{1} << 40)
        exponent += static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
    const double size = exponent > 0 ? std::numeric_limits<double>::infinity() : 0.0;
    return negative ? -size : size;
}

// A name may begin with such letters.
bool IsSpelledOut(std::string_view text) {
    if (text.starts_with('-')) text.remove_prefix(1);
    text = Trim(text, kSpace);
    return text == "inf" || text == "nan";
}

// The number at the beginning of `text`, and where it ends (at its beginning when there is none).
double ScanReal(std::string_view text, const char*& end) {
    double value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    end = result.ptr;
    if (result.ec == std::errc() && std::isfinite(value)) return value;
    if (result.ec == std::errc() && IsSpelledOut(text)) return value;
    if (result.ec != std::errc::result_out_of_range) {
        end = text.data();
        return 0;
    }
    return OutOfRange(text.substr(0, static_cast<std::size_t>(end - text.data())));
}

}  // namespace

std::int64_t LeadingInteger(std::string_view text) {
    text = SkipToNumber(text);
    std::int64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc::result_out_of_range) return value;
    using Limits = std::numeric_limits<std::int64_t>;
    return text.front() == '-' ? Limits::min() : Limits::max();
}

double LeadingReal(std::string_view text) {
    const char* end = nullptr;
    return ScanReal(SkipToNumber(text), end);
}

bool IsTrueText(std::string_view text) {
    return EqualIgnoringCase(Trim(text, kSpace), "true");
}

double NumberIn(std::string_view text) {
    const double number = LeadingReal(text);
    return number == 0 && IsTrueText(text) ? 1 : number;
}

bool IsNumber(std::string_view text, double& value) {
    text = SkipToNumber(Trim(text, kSpace));
    if (text.empty()) return false;
    const char* end = nullptr;
    value = ScanReal(text, end);
    return end == text.data() + text.size();
}

bool IsInteger(std::string_view text, std::int64_t& value) {
    text = SkipToNumber(Trim(text, kSpace));
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

std::int32_t ToInt32(double value) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (!(value > -2147483649.0 && value < 2147483648.0)) return Limits::min();
    return static_cast<std::int32_t>(value);
}

std::int64_t ToInt64(double value) {
    using Limits = std::numeric_limits<std::int64_t>;
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775808.0) return Limits::max();
    if (value <= -9223372036854775808.0) return Limits::min();
    return static_cast<std::int64_t>(value);
}

void AppendReal(std::string& out, double value, unsigned precision) {
    if (std::isnan(value)) {
        out += "nan";
        return;
    }
    char buffer[384];  // 309 digits, a sign, a point and at most 20 decimals
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed,
                                      static_cast<int>(precision));
    std::string_view text(buffer, static_cast<std::size_t>(result.ptr - buffer));
    while (text.size() >= 3 && text.back() == '0' && text[text.size() - 2] != '.') text.remove_suffix(1);
    out += text;
}

namespace {

// "12.50" and the like, with so few digits that the double nearest to it prints as the same digits: an error
// of one part in 2^53 must stay below half of the last decimal.
bool AppendPlainReal(std::string& out, std::string_view text, unsigned precision) {
    constexpr std::size_t kSafeDigits = 15;
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    std::size_t point = 0;
    while (point < digits.size() && IsDigit(digits[point])) ++point;
    if (point == 0 || point + 1 >= digits.size() || digits[point] != '.') return false;
    const std::size_t decimals = digits.size() - point - 1;
    if (decimals > precision || point + precision > kSafeDigits) return false;
    if (digits.front() == '0' && point != 1) return false;
    for (std::size_t i = point + 1; i < digits.size(); ++i)
        if (!IsDigit(digits[i])) return false;
    std::size_t size = text.size();
    while (text[size - 1] == '0' && text[size - 2] != '.') --size;
    out += text.substr(0, size);
    return true;
}

}  // namespace

void AppendRealText(std::string& out, std::string_view text, unsigned precision) {
    if (!AppendPlainReal(out, text, precision)) AppendReal(out, NumberIn(text), precision);
}

void AppendInteger(std::string& out, std::int64_t value) {
    char buffer[24];
    out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
}

void AppendIntegerText(std::string& out, std::string_view text) {
    constexpr std::size_t kSafeDigits = 18;
    const bool printsAsItIs = text.size() <= kSafeDigits && (!text.starts_with('0') || text.size() == 1) &&
                              !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
    if (printsAsItIs) {
        out += text;
    } else {
        AppendInteger(out, IsTrueText(text) ? 1 : LeadingInteger(text));
    }
}

}  // namespace Metrics::detail
