#include "metrics/reader/XmlText.h"

#include <charconv>
#include <cstdint>
#include <utility>

#include "metrics/reader/ByteSearch.h"
#include "metrics/reader/XmlHandler.h"
#include "metrics/values/Utf8.h"
#include "metrics/values/XmlName.h"

namespace StreamingXml {
namespace {

// The longest that is undone: "&#x10FFFF;" with some leading zeros to spare.
constexpr std::size_t kLongestEntity = 16;

bool AppendNumeric(std::string& out, std::string_view digits) {
    const bool hexadecimal = digits.starts_with('x') || digits.starts_with('X');
    if (hexadecimal) digits.remove_prefix(1);
    std::uint32_t code = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, code, hexadecimal ? 16 : 10);
    if (digits.empty() || result.ec != std::errc() || result.ptr != end) return false;
    if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return false;
    char character[4];
    out.append(character, Metrics::detail::WriteUtf8(character, code));
    return true;
}

std::size_t PlainLength(std::string_view text) {
    std::size_t length = 0;
    while (length < text.size() && text[length] != '&' && text[length] != '\\') ++length;
    return length;
}

// `name` stands between '&' and ';'.
bool AppendEntity(std::string& out, std::string_view name) {
    if (name.starts_with('#')) return AppendNumeric(out, name.substr(1));
    char c = '\0';
    if (name == "amp") c = '&';
    if (name == "lt") c = '<';
    if (name == "gt") c = '>';
    if (name == "quot") c = '"';
    if (name == "apos") c = '\'';
    if (c != '\0') out += c;
    return c != '\0';
}

}  // namespace

void AppendUnescaped(std::string& out, std::string_view text) {
    if (!HoldsAny(text, '&', '\\')) {
        out += text;
        return;
    }
    while (!text.empty()) {
        const std::size_t plain = PlainLength(text);
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) return;
        std::size_t used = 1;
        if (text.front() == '\\') {
            used = text.starts_with("\\\\") ? 2 : 1;
            out += '\\';
        } else {
            const auto end = text.substr(0, kLongestEntity).find(';');
            const bool undone = end != text.npos && AppendEntity(out, text.substr(1, end - 1));
            if (undone) used = end + 1;
            if (!undone) out += '&';
        }
        text.remove_prefix(used);
    }
}

void Unescape(std::string& text) {
    if (!HoldsAny(text, '&', '\\')) return;
    std::string undone;
    AppendUnescaped(undone, text);
    text = std::move(undone);
}

bool XmlAttribute::IsNamed(std::string_view wanted) const {
    if (!isMarkup || name.find("_x") == name.npos) return name == wanted;
    return Metrics::detail::UndoXmlName(name) == wanted;
}

void XmlAttribute::AppendValue(std::string& out) const {
    if (isMarkup) {
        AppendUnescaped(out, value);
    } else {
        out += value;
    }
}

void AppendEscaped(std::string& out, std::string_view text) {
    for (const char c : text) {
        if (c == '&') {
            out += "&amp;";
        } else {
            out.append(c == '\\' ? 2 : 1, c);
        }
    }
}

}  // namespace StreamingXml
