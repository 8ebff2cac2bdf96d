#include "metrics/values/ElementText.h"

#include <bit>
#include <cstdint>
#include <string>

#include "metrics/values/EightBytes.h"
#include "metrics/values/TextEscape.h"
#include "metrics/values/Utf8.h"
#include "metrics/values/ValueText.h"
#include "metrics/values/XmlName.h"

namespace Metrics::detail {
namespace {

constexpr std::string_view kNamespaceKey = "xmlns";

bool IsNarrow(const MetricsValue& value) {
    return value.Kind() == MetricsValueType::String || value.Kind() == MetricsValueType::StringRef;
}

bool IsWide(const MetricsValue& value) {
    return value.Kind() == MetricsValueType::WideString || value.Kind() == MetricsValueType::WideStringRef;
}

// The value as it is. A character whose low byte is 0 is left out: no text of an event holds a NUL.
std::string_view RawText(const MetricsValue& value, TextBuffer& room, DateTimeText& times) {
    if (IsNarrow(value)) return value.Text();
    room.Clear();
    if (!IsWide(value)) {
        AppendText(room, value, 0, times);
        return room.View();
    }
    for (const wchar_t wide : std::wstring_view(value.WideText()))
        if (const char c = static_cast<char>(wide); c != '\0') room.Append(c);
    return room.View();
}

bool IsDropped(std::uint32_t code) {
    return code < 0x20 && code != '\t' && code != '\n';
}

enum class Controls { Keep, Drop };

// `text` may stand in `room`.
std::string_view Repair(std::string_view text, TextBuffer& room, Controls controls) {
    TextBuffer repaired;
    for (; !text.empty();) {
        const Utf8Character character = FirstCharacter(text);
        text.remove_prefix(character.size);
        if (controls == Controls::Drop && IsDropped(character.code)) continue;
        repaired.Commit(WriteUtf8(repaired.Room(4), character.code));
    }
    room.Clear();
    room.Append(repaired.View());
    return room.View();
}

// A code as the name that it is, when letters are all that it has. Nearly all names that are codes are such.
bool AppendLetters(TextBuffer& out, std::uint64_t code) {
    if (code == 0) return false;
    // Each half is right-aligned.
    const std::uint64_t low = code & 0xFFFFFFFF;
    const int missingHigh = std::countl_zero(static_cast<std::uint32_t>(code >> 32)) / 8;
    const int missingLow = std::countl_zero(static_cast<std::uint32_t>(low)) / 8;
    const int missing = missingHigh + missingLow;
    const std::uint64_t text = ((code ^ low) | low << 8 * missingLow) << 8 * missingHigh;
    const std::uint64_t filled = text | ('a' * EightBytes::kOnes & ~(~std::uint64_t{0} << 8 * missing));
    const std::uint64_t letters = EightBytes::Between(filled | 0x20 * EightBytes::kOnes, 'a', 'z') & ~filled;
    if (letters != EightBytes::kHighs) return false;
    char* const at = out.Room(8);
    for (int i = 0; i < 8; ++i) at[i] = static_cast<char>(text >> (56 - 8 * i));
    out.Commit(at + (8 - missing));
    return true;
}

void AppendName(TextBuffer& out, std::string_view text) {
    if (IsPlainXmlName(text)) {
        out.Append(text);
    } else {
        AppendXmlName(out, text);
    }
}

void ReplaceByName(TextBuffer& out, std::size_t start) {
    const std::string text(out.View().substr(start));
    out.Truncate(start);
    AppendXmlName(out, text);
}

void AppendWideName(TextBuffer& out, const MetricsValue& name, DateTimeText& times) {
    TextBuffer room;
    AppendXmlName(out, RawText(name, room, times));
}

void AppendOddText(TextBuffer& out, const MetricsValue& value, MetricsValue::ToStringFlags flags,
                   DateTimeText& times) {
    char memory[64];  // enough for codes
    TextBuffer room(memory);
    std::string_view text = RawText(value, room, times);
    if (!IsWholeUtf8(text)) text = Repair(text, room, Controls::Keep);
    AppendEscaped(out, text, flags);
}

}  // namespace

void AppendXmlName(TextBuffer& out, const MetricsValue& name, DateTimeText& times) {
    switch (name.Kind()) {
        case MetricsValueType::String:
        case MetricsValueType::StringRef: return AppendName(out, name.Text());
        case MetricsValueType::WideString:
        case MetricsValueType::WideStringRef: return AppendWideName(out, name, times);
        case MetricsValueType::FourCC:
        case MetricsValueType::EightCC:
            if (AppendLetters(out, name.AsUInt64())) return;
            break;
        default: break;
    }
    const std::size_t start = out.Size();
    AppendText(out, name, 0, times);
    if (!IsPlainXmlName(out.View().substr(start))) ReplaceByName(out, start);
}

void AppendXmlKey(TextBuffer& out, const MetricsValue& key, DateTimeText& times) {
    const std::size_t start = out.Size();
    AppendXmlName(out, key, times);
    if (out.View().substr(start) != kNamespaceKey) return;
    out.Truncate(start);
    out.Append("_x0078_mlns");
}

void AppendXmlText(TextBuffer& out, const MetricsValue& value, MetricsValue::ToStringFlags flags,
                   DateTimeText& times) {
    flags |= MetricsValue::XmlEscape;
    switch (value.Kind()) {
        case MetricsValueType::String:
        case MetricsValueType::StringRef: {
            const std::string_view text = value.Text();
            return IsAscii(text) ? AppendEscaped(out, text, flags) : AppendOddText(out, value, flags, times);
        }
        case MetricsValueType::WideString:
        case MetricsValueType::WideStringRef:
        case MetricsValueType::FourCC:
        case MetricsValueType::EightCC: return AppendOddText(out, value, flags, times);
        default: return AppendText(out, value, flags, times);
    }
}

std::string_view ElementName(const MetricsValue& name, TextBuffer& room, DateTimeText& times) {
    const std::string_view text = RawText(name, room, times);
    return IsAscii(text) || IsWholeUtf8(text) ? text : Repair(text, room, Controls::Keep);
}

std::string_view ElementText(const MetricsValue& value, TextBuffer& room, DateTimeText& times) {
    const std::string_view text = RawText(value, room, times);
    return IsPrintableAscii(text) ? text : Repair(text, room, Controls::Drop);
}

}  // namespace Metrics::detail
