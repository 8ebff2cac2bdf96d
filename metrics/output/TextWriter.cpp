#include "metrics/output/TextWriter.h"

#include <utility>

#include "metrics/rows/SchemaFile.h"

namespace Metrics {

TextWriter::TextWriter(std::ostream& stream, std::string fileName, char separator,
                       const std::vector<std::string>& rowDefinition)
    : fileName_(std::move(fileName)),
      separator_(separator),
      table_(stream, separator, rowDefinition),
      rows_(table_.Row(), table_.Reader()) {}

void TextWriter::Begin() {
    if (!fileName_.empty()) detail::WriteSchema(fileName_, table_.Columns(), separator_);
    table_.Begin();
}

void TextWriter::Write(const MetricsEvent& event) {
    if (table_.HasEnded()) return;
    try {
        rows_.Write(event);
    } catch (...) {
        table_.BreakOff();  // the rows before it count
        throw;
    }
}

void TextWriter::End() {
    if (table_.HasEnded()) return;
    rows_.End();
    table_.End();
}

}  // namespace Metrics
