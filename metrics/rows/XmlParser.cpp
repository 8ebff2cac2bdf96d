#include "metrics/XmlParser.h"

#include <ostream>

#include "metrics/Csv.h"
#include "metrics/reader/XmlCopy.h"
#include "metrics/reader/XmlScanner.h"
#include "metrics/rows/ColumnSpec.h"
#include "metrics/rows/RowEngine.h"
#include "metrics/rows/RowReader.h"

namespace StreamingXml {

using Metrics::detail::CompiledRow;
using Metrics::detail::RowEngine;
using Metrics::detail::RowReader;

struct XmlParser::State {
    RowCallback callback;
    NoticeCallback noticeCallback;
    std::uint32_t options = 0;
    CompiledRow row;
    std::ostream* copyStream = nullptr;
    // One input's; the row above outlives them.
    std::unique_ptr<RowReader> reader;
    std::unique_ptr<RowEngine> engine;
    std::unique_ptr<XmlCopy> copy;
    std::unique_ptr<XmlScanner> scanner;
};

XmlParser::XmlParser(RowCallback rowCallback, std::uint32_t options) : state_(std::make_unique<State>()) {
    state_->callback = std::move(rowCallback);
    state_->options = options;
    Metrics::detail::CompileRow({}, state_->row);
    Reset();
}

XmlParser::~XmlParser() = default;

void XmlParser::CheckInvert() const {
    if ((state_->options & Invert) && (state_->options & ComputesAggregates))
        throw Metrics::RowDefinitionError("Error: Can't invert output while computing aggregates.");
}

int XmlParser::Compile(const std::vector<std::string>& columns) {
    CheckInvert();
    constexpr std::uint32_t kDerived =
        UsesPaths | UsesLineNumbers | ComputesAggregates | HasComputed | HasOptional;
    state_->options &= ~kDerived;
    state_->scanner.reset();
    state_->engine.reset();
    state_->reader.reset();
    const auto adopt = [this] {
        const CompiledRow& row = state_->row;
        state_->options |= (row.usesPaths ? UsesPaths : 0U) | (row.usesLines ? UsesLineNumbers : 0U) |
                           (row.IsSummary() ? ComputesAggregates : 0U) |
                           (row.hasComputed ? HasComputed : 0U) | (row.hasOptional ? HasOptional : 0U);
        Build();
    };
    try {
        Metrics::detail::CompileRow(columns, state_->row);
    } catch (...) {
        adopt();
        throw;
    }
    adopt();
    return 0;
}

int XmlParser::Compile(std::string_view definition) {
    return Compile(Metrics::detail::SplitDefinition(definition));
}

void XmlParser::Reset() {
    CheckInvert();
    Build();
}

void XmlParser::Build() {
    State& state = *state_;
    state.scanner.reset();
    state.engine.reset();
    state.copy.reset();
    state.reader = std::make_unique<RowReader>(state.row, [this] {
        state_->callback(*this);
        if (state_->reader->IsFull()) state_->scanner->Stop();
    });
    if (state.options & SingleRow) state.reader->StopAfterFirstRow();
    state.engine = std::make_unique<RowEngine>(state.row, *state.reader, state.reader->Notices());
    state.scanner = std::make_unique<XmlScanner>(*state.engine);
    if (state.options & UsesLineNumbers) state.scanner->GiveLines();
    SetCopyStream(state.copyStream);
    if (state.noticeCallback) SetNoticeCallback(std::move(state.noticeCallback));
}

void XmlParser::SetNoticeCallback(NoticeCallback callback) {
    state_->noticeCallback = std::move(callback);
    state_->scanner->TrackLines();
    state_->reader->Notices().SetHandler([this](const Metrics::detail::RowNotice& notice) {
        const auto [line, column] = state_->scanner->TagPosition();
        if (!state_->noticeCallback) return;
        state_->noticeCallback("line " + std::to_string(line) + ", column " + std::to_string(column) + ": " +
                               notice.text);
    });
}

std::uint64_t XmlParser::LeftOut() const noexcept {
    return state_->reader->Notices().Count();
}

void XmlParser::SetCopyStream(std::ostream* out) {
    State& state = *state_;
    state.copyStream = out;
    state.copy.reset();
    if (out != nullptr && (state.options & (CopyThrough | Invert))) {
        const XmlCopy::Layout layout{(state.options & CopyThrough) != 0, (state.options & Reindent) != 0};
        state.copy = std::make_unique<XmlCopy>(*out, layout);
    }
    state.scanner->SetCopy(state.copy.get());
}

void XmlParser::Feed(std::string_view bytes) {
    state_->scanner->Feed(bytes);
}

void XmlParser::End() {
    if (!state_->scanner->Stopped()) {
        state_->engine->Finish();
        state_->reader->GiveGroups();
    }
    if (state_->copy != nullptr) state_->copy->Flush();
    state_->scanner->End();
}

std::uint32_t XmlParser::Options() const noexcept {
    return state_->options;
}

bool XmlParser::IsSummary() const noexcept {
    return state_->row.IsSummary();
}

std::vector<XmlColumnInfo> XmlParser::Columns(bool includeAggregates) const {
    return Metrics::detail::ListColumns(state_->row, includeAggregates);
}

void XmlParser::AppendRow(std::string& out, char separator, bool includeAggregates) const {
    state_->reader->AppendCurrent(out, separator, includeAggregates);
}

}  // namespace StreamingXml

namespace Metrics {
namespace {

void WriteAndFlush(std::ostream& out, const std::string& text) {
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    out.flush();
}

}  // namespace

void WriteCsvHeader(StreamingXml::XmlParser& parser, std::ostream& out, char separator,
                    bool includeAggregates) {
    std::string line;
    detail::AppendHeader(line, parser.Columns(includeAggregates), separator);
    WriteAndFlush(out, line);
}

void WriteCsvRow(StreamingXml::XmlParser& parser, std::ostream& out, char separator, bool includeAggregates) {
    std::string lines;
    parser.AppendRow(lines, separator, includeAggregates);
    WriteAndFlush(out, lines);
}

}  // namespace Metrics
