#pragma once

#include <string>
#include <string_view>

// The text between tags and in attribute values: white space, and the escapes that the XML writer makes.
namespace StreamingXml {

inline constexpr std::string_view kBlanks = " \t\r\n";

constexpr bool IsBlank(char c) {
    return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

inline std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

// Appends `text` with its escapes undone: the five named entities, numeric ones (as UTF-8) and the doubled
// backslash. What only looks like an escape stays as it is.
void AppendUnescaped(std::string& out, std::string_view text);
// The same in place.
void Unescape(std::string& text);

// Appends text that is meant literally (CDATA) so that AppendUnescaped() gives it back.
void AppendEscaped(std::string& out, std::string_view text);

}  // namespace StreamingXml
