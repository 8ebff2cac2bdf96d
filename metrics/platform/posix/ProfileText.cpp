#include "metrics/platform/posix/ProfileText.h"

#include <algorithm>
#include <optional>

namespace Metrics::platform {

namespace {

std::string_view Trimmed(std::string_view line) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
}

// ASCII only: no locale decides what a section is called.
std::string LowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

// A line that begins with '['. Without a ']' at its end it is nobody's header, but the section before it
// ends.
struct Header {
    std::size_t begin;
    std::size_t end;
    std::string_view line;

    bool HasName() const { return line.ends_with(']'); }
    std::string_view Name() const { return line.substr(1, line.size() - 2); }
};

std::optional<Header> NextHeader(std::string_view text, std::size_t at) {
    while ((at = text.find('[', at)) != std::string_view::npos) {
        const std::size_t begin = text.find_last_of('\n', at) + 1;  // 0 when there is no line before
        at = std::min(text.find('\n', at), text.size());
        const std::string_view line = Trimmed(text.substr(begin, at - begin));
        if (line.starts_with('[')) return Header{begin, at, line};
    }
    return std::nullopt;
}

std::string_view LineEnd(std::string_view text) {
    const std::size_t end = text.find('\n');
    return end != std::string_view::npos && end > 0 && text[end - 1] == '\r' ? "\r\n" : "\n";
}

}  // namespace

void ProfileIndex::Read(std::string_view text) {
    *this = {};
    Note(text, 0);
}

bool ProfileIndex::ReadOn(std::string_view rest) {
    if (!endsLine_ || !rest.starts_with(lastHeader_)) return false;
    Note(rest, last_);
    return true;
}

void ProfileIndex::Note(std::string_view text, std::size_t at) {
    if (at == 0) lineEnd_ = LineEnd(text);
    endsLine_ = text.empty() || text.ends_with('\n');
    std::optional<Header> next;
    for (std::optional<Header> header = NextHeader(text, 0); header; header = next) {
        next = NextHeader(text, header->end);
        last_ = at + header->begin;
        lastHeader_ = text.substr(header->begin, header->end + 1 - header->begin);
        if (!header->HasName()) continue;
        const Extent extent{last_, at + (next ? next->begin : text.size())};
        Extent& first = extents_.try_emplace(Key(header->Name()), extent).first->second;
        if (first.begin == extent.begin) first.end = extent.end;
    }
}

std::string ProfileIndex::Key(std::string_view section) {
    return LowerCase(section);
}

const ProfileIndex::Extent* ProfileIndex::Find(std::string_view section) const {
    const auto found = extents_.find(Key(section));
    return found == extents_.end() ? nullptr : &found->second;
}

std::string ProfileIndex::Format(std::string_view section, std::string_view entries) const {
    std::string text = "[";
    text.append(section).append("]").append(lineEnd_);
    while (!entries.empty()) {
        const std::size_t length = std::min(entries.find('\0'), entries.size());
        text.append(entries.substr(0, length)).append(lineEnd_);
        entries.remove_prefix(std::min(length + 1, entries.size()));
    }
    return text;
}

}  // namespace Metrics::platform
