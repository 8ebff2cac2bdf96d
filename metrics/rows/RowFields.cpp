#include "metrics/rows/RowFields.h"

#include "metrics/reader/ByteSearch.h"
#include "metrics/rows/Text.h"

namespace Metrics::detail {
namespace {

// "a""b" in quotes is a"b.
void AppendUnquoted(std::string& out, std::string_view piece) {
    if (piece.size() < 2 || piece.front() != '"') {
        out += piece;
        return;
    }
    piece = piece.substr(1, piece.size() - 2);
    for (std::size_t i = 0; i < piece.size(); ++i) {
        out += piece[i];
        if (piece[i] == '"') ++i;
    }
}

// The names of the elements around the node; its own name is not among them.
void AddScopes(RowFields& fields, std::uint32_t count, std::string_view path) {
    const auto names = SplitOutsideQuotes(path, '.');
    for (std::uint32_t i = 0; i < count; ++i) {
        std::string& field = fields.Add();
        if (i + 1 < names.size()) AppendUnquoted(field, names[i]);
    }
}

void AppendLine(std::string& out, const RowFields& fields, std::string_view pivot, char separator) {
    for (std::size_t i = 0; i < fields.Size(); ++i) {
        if (i > 0) out += separator;
        AppendField(out, i == fields.pivot ? pivot : std::string_view(fields[i]), separator);
    }
    out += '\n';
}

}  // namespace

void AddColumn(RowFields& fields, const CompiledRow& row, const CompiledColumn& column,
               const ValueSource& source) {
    const Value value = Evaluate(row, column.program, source);
    if (column.kind == CompiledColumn::Kind::Scopes) return AddScopes(fields, column.scopes, value.text);
    if (column.kind == CompiledColumn::Kind::Pivot && fields.pivot == RowFields::kNoPivot)
        fields.pivot = fields.Size();
    AppendValue(fields.Add(), value, column.type, column.precision);
}

std::vector<std::string_view> PivotSuffixes(std::string_view path) {
    auto suffixes = SplitOutsideQuotes(path, '.');
    for (std::string_view& piece : suffixes)
        piece = path.substr(static_cast<std::size_t>(piece.data() - path.data()));
    if (suffixes.empty()) suffixes.push_back(path);
    return suffixes;
}

void QuoteFrom(std::string& out, std::size_t start, char separator) {
    const std::string_view text = std::string_view(out).substr(start);
    if (!StreamingXml::HoldsAny(text, separator, '"', '\n')) return;
    const std::string field(text);
    out.resize(start);
    out += '"';
    for (const char c : field) out.append(c == '"' ? 2 : 1, c);
    out += '"';
}

void AppendField(std::string& out, std::string_view text, char separator) {
    const std::size_t start = out.size();
    out += text;
    QuoteFrom(out, start, separator);
}

void AppendLines(std::string& out, const RowFields& fields, char separator) {
    if (fields.pivot == RowFields::kNoPivot) return AppendLine(out, fields, {}, separator);
    for (const std::string_view suffix : PivotSuffixes(fields[fields.pivot]))
        AppendLine(out, fields, suffix, separator);
}

}  // namespace Metrics::detail
