#include "metrics/output/WriterFactory.h"

#include <stdexcept>

#include "metrics/output/BufferWriter.h"
#include "metrics/output/NestedWriter.h"
#include "metrics/output/RawWriter.h"
#include "metrics/output/TextWriter.h"
#include "metrics/output/XmlWriter.h"

namespace Metrics::detail {

namespace {

bool IsTable(MetricsOutput::Format format) {
    return format == MetricsOutput::Format::CsvComma || format == MetricsOutput::Format::CsvPipe;
}

}  // namespace

void CheckDefinition(const WriterSettings& settings) {
    if (!IsTable(settings.format)) return;
    CompiledRow scratch;
    CompileRow(settings.rowDefinition, scratch);
}

std::unique_ptr<IWriter> MakeWriter(const WriterSettings& settings, std::ostream* stream,
                                    const std::string& schemaFor) {
    using Format = MetricsOutput::Format;
    if (settings.format == Format::Buffer) return std::make_unique<BufferWriter>();
    if (stream == nullptr) throw std::runtime_error("MetricsOutput: only Format::Buffer writes to a buffer");
    switch (settings.format) {
        case Format::Xml:
            return std::make_unique<NestedWriter<XmlWriter>>(settings.misnested, *stream,
                                                             settings.rootElement);
        case Format::CsvComma:
        case Format::CsvPipe: {
            const char separator = settings.format == Format::CsvPipe ? '|' : ',';
            return std::make_unique<TextWriter>(*stream, schemaFor, separator, settings.rowDefinition,
                                                settings.misnested);
        }
        default: return std::make_unique<RawWriter>(*stream, settings.mute);
    }
}

}  // namespace Metrics::detail
