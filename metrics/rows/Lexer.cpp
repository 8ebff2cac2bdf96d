#include <algorithm>

#include "metrics/RowDefinitionError.h"
#include "metrics/rows/Expression.h"
#include "metrics/rows/Text.h"
#include "metrics/values/XmlName.h"

namespace Metrics::detail {
namespace {

constexpr std::string_view kOperatorCharacters = "+-*/%,()<>=!|&.";

// As for tags, a group "_xHHHH_" is that character.
std::string MeantBy(std::string_view name) {
    const bool quoted = name.size() >= 2 && name.front() == '"' && name.back() == '"';
    return UndoXmlName(quoted ? name.substr(1, name.size() - 2) : name);
}

}  // namespace

bool IsOperatorAt(std::string_view text, std::size_t i) {
    const char before = i > 0 ? text[i - 1] : '\0';
    const char after = i + 1 < text.size() ? text[i + 1] : '\0';
    switch (text[i]) {
        case '*': return i > 0 && before != '.' && after != '.';
        case '-': return after == '-';
        case '.': return after == '.';
        default: return kOperatorCharacters.find(text[i]) != std::string_view::npos;
    }
}

// Of each character only the first occurrence counts, so that "a-b--c" is a path; but every ".." does.
bool IsComputed(std::string_view text) {
    bool quoted = false;
    std::uint32_t seen = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') quoted = !quoted;
        const auto which = kOperatorCharacters.find(text[i]);
        if (quoted || which == std::string_view::npos) continue;
        const bool first = (seen & 1U << which) == 0;
        seen |= 1U << which;
        if ((first || text[i] == '.') && IsOperatorAt(text, i)) return true;
    }
    return false;
}

bool LooksLikeNumber(std::string_view text) {
    if (text.starts_with('-')) text.remove_prefix(1);
    if (text.starts_with('.')) text.remove_prefix(1);
    return !text.empty() && IsDigit(text.front());
}

std::vector<PathName> ParsePath(std::string_view text) {
    std::vector<PathName> path;
    for (const std::string_view piece : SplitOutsideQuotes(text, '.')) {
        const std::string_view name = Trim(piece);
        if (!name.empty()) path.push_back({MeantBy(name), name == "*"});
    }
    if (path.empty()) throw RowDefinitionError("Error: invalid path");
    if (path.front().any) path.erase(path.begin());
    return path;
}

}  // namespace Metrics::detail
