#include "metrics/rows/ColumnSpec.h"

#include "metrics/rows/Numbers.h"
#include "metrics/rows/Text.h"

namespace Metrics::detail {
namespace {

// Which of the parts is what; -1 where it is not given.
struct Layout {
    int name;
    int expression;
    int type;
    int precision;
};

Layout LayoutOf(std::size_t parts, bool bracket) {
    switch (parts) {
        case 1: return {-1, 0, -1, -1};
        case 2: return bracket ? Layout{0, 1, -1, -1} : Layout{-1, 0, 1, -1};
        case 3: return bracket ? Layout{0, 1, 2, -1} : Layout{-1, 0, 1, 2};
        default: return {0, 1, 2, 3};
    }
}

ColumnType TypeOf(std::string_view text) {
    switch (text.empty() ? '\0' : ToLower(text.front())) {
        case 'i': return ColumnType::Integer;
        case 'r': return ColumnType::Real;
        case 'b': return ColumnType::Boolean;
        case 's': return ColumnType::String;
        case 'd': return ColumnType::DateTime;
        default: return ColumnType::None;
    }
}

// A negative count is a very large one, so that it is refused.
std::uint32_t PrecisionOf(std::string_view text) {
    const std::int64_t value = LeadingInteger(text);
    return value < 0 || value > kMaxPrecision ? UINT32_MAX : static_cast<std::uint32_t>(value);
}

bool InBrackets(std::string_view part) {
    return part.size() >= 2 && part.front() == '[' && part.back() == ']';
}

std::string_view FirstError(const ColumnSpec& spec, bool bracketsMissing, bool fourParts) {
    if (bracketsMissing) return "names must be quoted with square brackets";
    if (spec.precision > kMaxPrecision) return "invalid precision";
    // Only with all four parts: "expression:type:precision" takes a precision on any type.
    if (fourParts && spec.type != ColumnType::Real) return "precision only valid on reals";
    if (spec.expr.empty()) return "empty spec";
    if ((spec.parts & ExprFlags::kNamed) && spec.name.empty()) return "empty name";
    if ((spec.parts & ExprFlags::kTyped) && spec.type == ColumnType::None)
        return "invalid type, expected integer (i), real (r), boolean (b), or string (s)";
    return {};
}

std::string DefaultName(const std::string& expr) {
    return EqualIgnoringCase(std::string_view(expr).substr(0, 6), "scopes") ? "s" : expr;
}

}  // namespace

ColumnSpec ParseColumnSpec(std::string_view text) {
    ColumnSpec spec;
    const auto parts = SplitOutsideQuotes(Trim(text, " \t\n"), ':');
    if (parts.empty() || parts.size() > 4) {
        spec.error = parts.empty() ? "empty expr" : "too many parts";
        return spec;
    }
    const Layout layout = LayoutOf(parts.size(), parts[0].starts_with('['));
    const auto part = [&](int index) { return parts[static_cast<std::size_t>(index)]; };
    bool bracketsMissing = false;
    spec.expr = part(layout.expression);
    if (layout.name >= 0) {
        spec.parts |= ExprFlags::kNamed;
        bracketsMissing = !InBrackets(part(layout.name));
        if (!bracketsMissing) spec.name = part(layout.name).substr(1, part(layout.name).size() - 2);
    }
    if (layout.type >= 0) {
        spec.parts |= ExprFlags::kTyped;
        spec.type = TypeOf(part(layout.type));
    }
    if (layout.precision >= 0) spec.precision = PrecisionOf(part(layout.precision));
    spec.error = FirstError(spec, bracketsMissing, parts.size() == 4);
    if (spec.name.empty()) spec.name = DefaultName(spec.expr);
    return spec;
}

std::vector<std::string> SplitDefinition(std::string_view definition) {
    std::vector<std::string> columns;
    for (std::size_t start = 0; start <= definition.size();) {
        const auto end = std::min(definition.find_first_of(";\r\n", start), definition.size());
        const std::string_view column = Trim(definition.substr(start, end - start));
        if (!column.empty()) columns.emplace_back(column);
        start = end + 1;
    }
    return columns;
}

}  // namespace Metrics::detail
