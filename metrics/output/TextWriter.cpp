#include "metrics/output/TextWriter.h"

#include "metrics/rows/SchemaFile.h"

namespace Metrics {

TextWriter::TextWriter(std::ostream& stream, char separator, const std::vector<std::string>& rowDefinition)
    : separator_(separator), table_(stream, separator, rowDefinition) {}

std::string TextWriter::Schema() const {
    return detail::SchemaEntries(table_.Columns(), separator_);
}

}  // namespace Metrics
