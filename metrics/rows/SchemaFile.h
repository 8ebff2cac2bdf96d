#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "metrics/XmlParser.h"

namespace Metrics::detail {

// What describes a table to a text-file database driver: entries, each ended by a NUL.
std::string SchemaEntries(const std::vector<StreamingXml::XmlColumnInfo>& columns, char separator);

// Writes the section for the table `fileName` into the schema.ini beside it, unless it stands there already.
// Another process may hold the file for a moment, so it is tried for one and a quarter seconds; a file that
// failed before in this process is tried once, so that many tables in a locked folder are not waited for one
// by one. Throws std::runtime_error. Any thread.
void WriteSchema(const std::string& fileName, const std::vector<StreamingXml::XmlColumnInfo>& columns,
                 char separator);

}  // namespace Metrics::detail
