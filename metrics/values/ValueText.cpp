#include "metrics/values/ValueText.h"

#include <bit>
#include <charconv>
#include <cstddef>
#include <string_view>

#include "metrics/values/EightBytes.h"
#include "metrics/values/TextEscape.h"

namespace Metrics {

namespace detail {

namespace {

// The longest scalar is the lowest double: a sign, 309 digits, a point and 6 decimals.
constexpr std::size_t kMaxScalar = 320;

char* WriteOddCode(char* out, std::uint32_t code) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto byte = static_cast<unsigned char>(code >> shift);
        if (byte > 31 && byte < 128) *out++ = static_cast<char>(byte);
    }
    return out;
}

// Four characters or fewer, right-aligned; writes four bytes in any case.
char* WriteCode(char* out, std::uint32_t code) {
    const int missing = std::countl_zero(code) / 8;
    const std::uint64_t text = std::uint64_t{code} << 8 * missing;
    const std::uint64_t filled = text | std::uint64_t{0x20202020} >> 8 * (4 - missing);
    if ((EightBytes::AtLeast(filled, ' ') & ~filled & 0x80808080U) != 0x80808080U)
        return WriteOddCode(out, code);
    for (int i = 0; i < 4; ++i) out[i] = static_cast<char>(text >> (24 - 8 * i));
    return out + (4 - missing);
}

char* WriteCode(char* out, std::uint64_t code) {
    out = WriteCode(out, static_cast<std::uint32_t>(code >> 32));
    return WriteCode(out, static_cast<std::uint32_t>(code));
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
        case MetricsValueType::FourCC: return WriteCode(out, static_cast<std::uint32_t>(value.AsUInt64()));
        case MetricsValueType::EightCC: return WriteCode(out, value.AsUInt64());
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
