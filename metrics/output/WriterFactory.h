#pragma once

#include <functional>
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
    std::string rootElement;    // of XML, or empty
    bool* misnested = nullptr;  // set when something closes before what is open inside
    // Takes what costs a row or an element only, see OutputState::Remark.
    std::function<void(std::string)> remark;
};

bool IsTable(MetricsOutput::Format format);

// Makes the writer of a new target. `stream` may be null for Buffer only; nothing is written to it yet.
// `destination` is how remarks call the target.
// Throws RowDefinitionError, and std::runtime_error without a stream.
std::unique_ptr<IWriter> MakeWriter(const WriterSettings& settings, std::ostream* stream,
                                    const std::string& destination);

}  // namespace Metrics::detail
