#include "metrics/rows/Value.h"

#include <charconv>
#include <chrono>
#include <cmath>

#include "metrics/rows/Numbers.h"
#include "metrics/rows/Text.h"

namespace Metrics::detail {
namespace {

// The rule for boolean columns: "true", or something that begins like a yes.
bool IsYes(std::string_view text) {
    if (text.empty() || EqualIgnoringCase(text, "false")) return false;
    const char first = ToLower(text.front());
    return first == '1' || first == 't' || first == 'y';
}

bool IsTrueNumber(double number) {
    return number != 0 && !std::isnan(number);
}

bool ToBoolean(const Value& value) {
    return value.IsText() ? IsYes(value.text) : IsTrueNumber(value.number);
}

void AppendText(std::string& out, const Value& value, unsigned precision) {
    if (value.kind == Value::Kind::Boolean) {
        out += value.number != 0 ? "true" : "false";
    } else if (value.kind == Value::Kind::Integer) {
        AppendInteger(out, ToInt64(value.number));
    } else if (value.kind == Value::Kind::Number && value.text.empty()) {
        AppendReal(out, value.number, precision);
    } else {
        out += value.text;
    }
}

// Reads `digits` digits, then `after` (when it is a character at all).
bool ReadPart(std::string_view& text, std::size_t digits, char after, int& value) {
    if (text.size() < digits) return false;
    for (std::size_t i = 0; i < digits; ++i)
        if (!IsDigit(text[i])) return false;
    std::from_chars(text.data(), text.data() + digits, value);
    text.remove_prefix(digits);
    if (after == '\0') return true;
    if (!text.starts_with(after)) return false;
    text.remove_prefix(1);
    return true;
}

void AppendTwoDigits(std::string& out, int value, char after) {
    out += static_cast<char>('0' + value / 10);
    out += static_cast<char>('0' + value % 10);
    if (after != '\0') out += after;
}

}  // namespace

double ToNumber(const Value& value) {
    return value.IsText() ? NumberIn(value.text) : value.number;
}

bool IsTrue(const Value& value) {
    double number = 0;
    if (value.IsText() && IsNumber(value.text, number)) return IsTrueNumber(number);
    return ToBoolean(value);
}

void AppendValue(std::string& out, const Value& value, ColumnType type, unsigned precision) {
    if (value.IsEmpty()) return;
    switch (type) {
        case ColumnType::Integer:
            if (value.text.empty()) return AppendInteger(out, ToInt64(value.number));
            return AppendIntegerText(out, value.text);
        case ColumnType::Real:
            if (value.IsText()) return AppendRealText(out, value.text, precision);
            return AppendReal(out, value.number, precision);
        case ColumnType::Boolean: out += ToBoolean(value) ? "true" : "false"; return;
        case ColumnType::DateTime: AppendDateTime(out, value.text); return;
        case ColumnType::String:
        case ColumnType::None: return AppendText(out, value, precision);
    }
}

bool AppendDateTime(std::string& out, std::string_view text) {
    text = Trim(text);
    const std::size_t yearDigits = std::min(text.find('-'), text.size());
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (yearDigits < 1 || yearDigits > 5 || !ReadPart(text, yearDigits, '-', year)) return false;
    if (!ReadPart(text, 2, '-', month) || !ReadPart(text, 2, ' ', day)) return false;
    if (!ReadPart(text, 2, ':', hour) || !ReadPart(text, 2, ':', minute)) return false;
    if (!ReadPart(text, 2, '\0', second)) return false;
    if (!text.empty()) {
        if (text.size() < 2 || text[0] != '.') return false;
        if (text.find_first_not_of("0123456789", 1) != text.npos) return false;
    }
    const std::chrono::year_month_day date{std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (year > 32767 || !date.ok() || hour > 23 || minute > 59 || second > 59) return false;
    AppendInteger(out, year);
    out += '-';
    AppendTwoDigits(out, month, '-');
    AppendTwoDigits(out, day, ' ');
    AppendTwoDigits(out, hour, ':');
    AppendTwoDigits(out, minute, ':');
    AppendTwoDigits(out, second, '\0');
    return true;
}

}  // namespace Metrics::detail
