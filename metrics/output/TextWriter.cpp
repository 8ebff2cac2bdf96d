#include "metrics/output/TextWriter.h"

#include <utility>

#include "metrics/rows/SchemaFile.h"

namespace Metrics {

TextWriter::TextWriter(std::ostream& stream, std::string fileName, char separator,
                       const std::vector<std::string>& rowDefinition)
    : fileName_(std::move(fileName)), separator_(separator), table_(stream, separator, rowDefinition) {}

void TextWriter::Begin() {
    if (!fileName_.empty()) detail::WriteSchema(fileName_, table_.Columns(), separator_);
    table_.Begin();
}

}  // namespace Metrics
