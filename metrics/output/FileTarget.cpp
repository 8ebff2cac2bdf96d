#include "metrics/output/FileTarget.h"

#include <memory>
#include <utility>

#include "metrics/output/NullStream.h"

namespace Metrics::detail {

OutputTarget MakeFileTarget(const WriterSettings& settings, const std::string& name,
                            OutputFileStream::Opening opening) {
    OutputTarget target;
    auto file = std::make_unique<OutputFileStream>();
    target.stream = target.file = file.get();
    target.owned = std::move(file);
    target.writer = MakeWriter(settings, target.stream, name);
    target.file->Open(name, opening);
    return target;
}

OutputTarget MakeNullTarget(const WriterSettings& settings) {
    OutputTarget target;
    target.owned = std::make_unique<basic_onullstream<char>>();
    target.stream = target.owned.get();
    target.writer = MakeWriter(settings, target.stream, "no file");
    return target;
}

std::string SchemaBeside(const OutputTarget& target) {
    return target.file != nullptr && target.file->IsPlain() ? target.writer->Schema() : std::string();
}

}  // namespace Metrics::detail
