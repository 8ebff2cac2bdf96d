#include "metrics/values/ValueText.h"

#include <charconv>
#include <cstddef>
#include <string_view>

#include "metrics/values/TextEscape.h"

namespace Metrics {

namespace detail {

namespace {

// The longest scalar is the lowest double: a sign, 309 digits, a point and 6 decimals.
constexpr std::size_t kMaxScalar = 320;

char* WriteCode(char* out, std::uint64_t code, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        const auto byte = static_cast<unsigned char>(code >> shift);
        if (byte > 31 && byte < 128) *out++ = static_cast<char>(byte);
    }
    return out;
}

char* WriteBool(char* out, bool value) {
    const std::string_view word = value ? "true" : "false";
    return out + word.copy(out, word.size());
}

char* WriteScalar(char* out, const MetricsValue& value, unsigned flags, DateTimeText& times) {
    switch (value.Kind()) {
        case MetricsValueType::Int64: return std::to_chars(out, out + kMaxScalar, value.AsInt64()).ptr;
        case MetricsValueType::Bool: return WriteBool(out, value.AsBool());
        case MetricsValueType::Double:
            return std::to_chars(out, out + kMaxScalar, value.AsDouble(), std::chars_format::fixed, 6).ptr;
        case MetricsValueType::DateTime:
            return times.Write(out, value.AsUInt64(), (flags & MetricsValue::WithSubseconds) != 0);
        case MetricsValueType::FourCC: return WriteCode(out, value.AsUInt64(), 4);
        case MetricsValueType::EightCC: return WriteCode(out, value.AsUInt64(), 8);
        default: return out;
    }
}

void AppendScalar(TextBuffer& out, const MetricsValue& value, unsigned flags, DateTimeText& times) {
    const bool quoted = (flags & MetricsValue::AlwaysQuote) != 0;
    char* at = out.Room(kMaxScalar + 2);
    if (quoted) *at++ = '"';
    at = WriteScalar(at, value, flags, times);
    if (quoted) *at++ = '"';
    out.Commit(at);
}

}  // namespace

void AppendText(TextBuffer& out, const MetricsValue& value, MetricsValue::ToStringFlags flags,
                DateTimeText& times) {
    switch (value.Kind()) {
        case MetricsValueType::String:
        case MetricsValueType::StringRef: return AppendEscaped(out, std::string_view(value.Text()), flags);
        case MetricsValueType::WideString:
        case MetricsValueType::WideStringRef:
            return AppendEscaped(out, std::wstring_view(value.WideText()), flags);
        case MetricsValueType::Opaque64: return;
        default: return AppendScalar(out, value, flags, times);
    }
}

void AppendText(std::string& out, const MetricsValue& value, MetricsValue::ToStringFlags flags,
                DateTimeText& times) {
    char memory[512];  // what every scalar and most texts fit into
    TextBuffer text(memory);
    AppendText(text, value, flags, times);
    out += text.View();
}

}  // namespace detail

std::string MetricsValue::ToString(ToStringFlags flags) const {
    std::string text;
    detail::DateTimeText times;
    detail::AppendText(text, *this, flags, times);
    return text;
}

}  // namespace Metrics
