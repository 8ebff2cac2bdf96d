#include "Definition.h"

#include <algorithm>
#include <fstream>
#include <ostream>
#include <sstream>

#include "metrics/RowDefinitionError.h"
#include "metrics/rows/ColumnSpec.h"
#include "metrics/rows/RowCompiler.h"
#include "metrics/rows/RowReader.h"

namespace {

using Metrics::ColumnType;

std::string ReadFile(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    if (!file) throw InputError(name + ": cannot be read");
    return content.str();
}

// "line:column" of a place in the text, from 1.
std::string PlaceOf(const std::string& text, std::size_t at) {
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n');
    const std::size_t start = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
    return std::to_string(line) + ":" + std::to_string(at - start + 1);
}

const char* NameOf(ColumnType type) {
    switch (type) {
        case ColumnType::None: return "none";
        case ColumnType::Integer: return "integer";
        case ColumnType::Real: return "real";
        case ColumnType::Boolean: return "boolean";
        case ColumnType::String: return "string";
        case ColumnType::DateTime: return "datetime";
    }
    return "";
}

}  // namespace

Metrics::detail::CompiledRow CompileDefinition(const Options& options) {
    const std::string text =
        options.definitionFile ? ReadFile(*options.definitionFile) : *options.definitionText;
    const std::string source = options.definitionFile.value_or("-e");
    Metrics::detail::RowCompiler compiler;
    std::size_t at = 0;
    for (const std::string& column : Metrics::detail::SplitDefinition(text)) {
        at = text.find(column, at);
        try {
            compiler.Add(column);
        } catch (const Metrics::RowDefinitionError& error) {
            throw InputError(source + ":" + PlaceOf(text, at) + ": " + error.what());
        }
        at += column.size();
    }
    return compiler.Finish();
}

void ListColumns(const Metrics::detail::CompiledRow& row, std::ostream& out) {
    for (const auto& column : Metrics::detail::ListColumns(row, true))
        out << column.name << '\t' << NameOf(column.type) << '\n';
}
