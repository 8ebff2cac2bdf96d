#include "metrics/platform/posix/ProfileText.h"

#include <algorithm>

namespace Metrics::platform {

namespace {

std::string_view Trimmed(std::string_view line) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
}

// ASCII only: no locale decides what a section is called.
char LowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsHeaderOf(std::string_view section, std::string_view line) {
    if (line.size() != section.size() + 2 || line.back() != ']') return false;
    return std::equal(section.begin(), section.end(), line.begin() + 1,
                      [](char a, char b) { return LowerCase(a) == LowerCase(b); });
}

// The bytes of a section from its header line to the next header or the end; empty at the end when there is
// none.
struct Extent {
    std::size_t begin;
    std::size_t end;
};

// Only brackets are looked at: a file may describe ten thousand tables.
Extent FindSection(std::string_view text, std::string_view section) {
    Extent extent{text.size(), text.size()};
    bool inside = false;
    for (std::size_t at = 0; (at = text.find('[', at)) != std::string_view::npos;) {
        const std::size_t start = text.find_last_of('\n', at) + 1;  // 0 when there is no line before
        at = std::min(text.find('\n', at), text.size());
        const std::string_view line = Trimmed(text.substr(start, at - start));
        if (!line.starts_with('[')) continue;
        if (inside) {
            extent.end = start;
            break;
        }
        inside = IsHeaderOf(section, line);
        if (inside) extent.begin = start;
    }
    return extent;
}

// Lines end as the first one of the file does.
std::string_view LineEnd(std::string_view text) {
    const std::size_t end = text.find('\n');
    return end != std::string_view::npos && end > 0 && text[end - 1] == '\r' ? "\r\n" : "\n";
}

}  // namespace

std::string ReplaceProfileSection(std::string_view text, std::string_view section, std::string_view entries) {
    const Extent old = FindSection(text, section);
    const std::string_view lineEnd = LineEnd(text);
    std::string result(text.substr(0, old.begin));
    if (!result.empty() && result.back() != '\n') result.append(lineEnd);
    result.append("[").append(section).append("]").append(lineEnd);
    while (!entries.empty()) {
        const std::size_t length = std::min(entries.find('\0'), entries.size());
        result.append(entries.substr(0, length)).append(lineEnd);
        entries.remove_prefix(std::min(length + 1, entries.size()));
    }
    return result.append(text.substr(old.end));
}

}  // namespace Metrics::platform
