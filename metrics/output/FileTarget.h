#pragma once

#include <string>

#include "metrics/output/OutputFile.h"
#include "metrics/output/TargetList.h"
#include "metrics/output/WriterFactory.h"

namespace Metrics::detail {

// A target on a file of that name, whose content stays until its stream is emptied. Throws what is wrong with
// the row definition before it looks for the file, and then a FileError.
OutputTarget MakeFileTarget(const WriterSettings& settings, const std::string& name,
                            OutputFileStream::Opening opening);
// A target that writes nowhere.
OutputTarget MakeNullTarget(const WriterSettings& settings);

// What is to stand in a schema.ini beside the target: nothing beside what is no plain file.
std::string SchemaBeside(const OutputTarget& target);

}  // namespace Metrics::detail
