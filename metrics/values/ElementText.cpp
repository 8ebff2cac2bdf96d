#include "metrics/values/ElementText.h"

#include "metrics/values/TextEscape.h"
#include "metrics/values/Utf8.h"
#include "metrics/values/ValueText.h"
#include "metrics/values/XmlName.h"

namespace Metrics::detail {
namespace {

constexpr std::string_view kNamespaceKey = "xmlns";

bool IsWide(const MetricsValue& value) {
    return value.Kind() == MetricsValueType::WideString || value.Kind() == MetricsValueType::WideStringRef;
}

bool IsCode(const MetricsValue& value) {
    return value.Kind() == MetricsValueType::FourCC || value.Kind() == MetricsValueType::EightCC;
}

// The value as it is. A character whose low byte is 0 is left out: no text of an event holds a NUL.
std::string_view RawText(const MetricsValue& value, TextBuffer& room, DateTimeText& times) {
    if (value.IsText() && !IsWide(value)) return value.Text();
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

void AppendMarkup(TextBuffer& out, std::string_view text, MetricsValue::ToStringFlags flags) {
    AppendEscaped(out, text, flags | MetricsValue::XmlEscape);
}

}  // namespace

void AppendXmlName(TextBuffer& out, const MetricsValue& name, DateTimeText& times) {
    char memory[512];
    TextBuffer room(memory);
    const std::string_view text = RawText(name, room, times);
    if (IsPlainXmlName(text)) {
        out.Append(text);
    } else {
        AppendXmlName(out, text);
    }
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
    if (!value.IsText() && !IsCode(value)) return AppendText(out, value, flags, times);
    char memory[512];
    TextBuffer room(memory);
    std::string_view text = RawText(value, room, times);
    if (!IsAscii(text) && !IsWholeUtf8(text)) text = Repair(text, room, Controls::Keep);
    AppendMarkup(out, text, flags);
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
