#include "metrics/reader/XmlTag.h"

#include <algorithm>

#include "metrics/reader/XmlText.h"

namespace StreamingXml {
namespace {

std::size_t SkipBlanks(std::string_view text, std::size_t at) {
    while (at < text.size() && IsBlank(text[at])) ++at;
    return at;
}

bool IsQuoteAt(std::string_view text, std::size_t at) {
    return at < text.size() && (text[at] == '"' || text[at] == '\'');
}

}  // namespace

bool XmlTag::Parse(std::string_view text) {
    text = TrimBlanks(text);
    attributes.clear();
    kind = Kind::Start;
    if (text.starts_with('/')) {
        kind = Kind::End;
        name = text.substr(1);
        return true;
    }
    if (text.ends_with('/')) {
        kind = Kind::Empty;
        text.remove_suffix(1);
    }
    std::size_t end = 0;
    while (end < text.size() && !IsBlank(text[end])) ++end;
    name = text.substr(0, end);
    return end == text.size() || ParseAttributes(text.substr(end));
}

// A part without '=' is an attribute with an empty value: that is how a scope name with blanks is read.
bool XmlTag::ParseAttributes(std::string_view text) {
    for (std::size_t at = SkipBlanks(text, 0); at < text.size(); at = SkipBlanks(text, at)) {
        const std::size_t start = at;
        while (at < text.size() && text[at] != '=' && !IsBlank(text[at])) ++at;
        const std::string_view key = text.substr(start, at - start);
        const std::size_t equals = SkipBlanks(text, at);
        const std::size_t quote = SkipBlanks(text, std::min(equals + 1, text.size()));
        const bool assigned = equals < text.size() && text[equals] == '=';
        if (!assigned || !IsQuoteAt(text, quote)) {
            if (assigned && equals == at) return false;
            attributes.push_back({key, {}});
            continue;
        }
        const std::size_t close = text.find(text[quote], quote + 1);
        if (close == text.npos) return false;
        attributes.push_back({key, text.substr(quote + 1, close - quote - 1)});
        at = close + 1;
        if (at < text.size() && !IsBlank(text[at])) return false;
    }
    return true;
}

}  // namespace StreamingXml
