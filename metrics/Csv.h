#pragma once

#include <iosfwd>

#include "metrics/Export.h"

namespace StreamingXml {
class XmlParser;
}

namespace Metrics {

/// Writes the names of the parser's columns as one line and flushes. A field that holds the separator, a
/// double quote or a line feed stands in double quotes, its own doubled. Without a definition the line is
/// empty. Columns with aggregates are left out unless asked for.
METRICS_API void WriteCsvHeader(StreamingXml::XmlParser& parser, std::ostream& out, char separator,
                                bool includeAggregates);

/// Writes the parser's current row, for use in its row callback, and flushes. A row with a pivot path becomes
/// one line for each of the path's suffixes, the longest first.
METRICS_API void WriteCsvRow(StreamingXml::XmlParser& parser, std::ostream& out, char separator,
                             bool includeAggregates);

}  // namespace Metrics
