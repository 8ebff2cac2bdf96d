#pragma once

#include <span>
#include <string>
#include <vector>

#include "metrics/XmlParser.h"

namespace Metrics::detail {

// What describes a table to a text-file database driver: entries, each ended by a NUL.
std::string SchemaEntries(const std::vector<StreamingXml::XmlColumnInfo>& columns, char separator);

struct TableSchema {
    std::string fileName;  // of the table
    std::string entries;
};

// Writes the sections of tables into the schema.ini beside each, unless they are there already; on Linux a
// file is written once for all of its tables. Another process may hold the file for a moment, so it is tried
// for one and a quarter seconds; a file that failed before in this process is tried once, so that many tables
// in a locked folder are not waited for one by one. Throws a FileError, of the first that failed, when all
// have been tried. Any thread.
void WriteSchemas(std::span<const TableSchema> tables);

}  // namespace Metrics::detail
