#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "metrics/MetricsOutput.h"
#include "metrics/output/IWriter.h"

namespace Metrics::detail {

// What the writers of an output's targets have in common.
struct WriterSettings {
    MetricsOutput::Format format;
    bool mute = false;
    std::vector<std::string> rowDefinition;
    bool* misnested = nullptr;  // set by writers when something closed before what is open inside
    std::string rootElement;    // of XML, or empty
};

// Throws RowDefinitionError when the format needs a row definition and this is none.
void CheckDefinition(const WriterSettings& settings);

// Makes the writer of a new target. `stream` may be null for Buffer only; `schemaFor` is the file that a
// table is to be described for, or empty. Throws RowDefinitionError, and
// std::runtime_error without a stream.
std::unique_ptr<IWriter> MakeWriter(const WriterSettings& settings, std::ostream* stream,
                                    const std::string& schemaFor);

}  // namespace Metrics::detail
