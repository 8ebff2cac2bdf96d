#include "Table.h"

#include <iostream>
#include <vector>

#include "Definition.h"
#include "metrics/MetricsEvent.h"
#include "metrics/MetricsValueBuffer.h"
#include "metrics/RowDefinitionError.h"
#include "metrics/platform/Platform.h"
#include "metrics/platform/StandardStreams.h"
#include "metrics/rows/LiveRows.h"

namespace {

using Metrics::detail::RowNotice;

constexpr std::size_t kReadBlock = 65536;
constexpr std::size_t kWriteBlock = 65536;
constexpr std::uint64_t kLargeInput = 64 << 20;  // before that nobody waits long enough to wonder
constexpr std::uint64_t kProgressStep = 16 << 20;

std::vector<std::uint8_t> ReadBytes(const std::string& name, std::istream& in) {
    std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    if (in.bad()) throw InputError(name + ": cannot be read");
    return bytes;
}

// Makes elements of the events; what is wrong with one ends it, and is returned.
std::string Replay(const Metrics::MetricsValueBuffer& buffer, std::uint32_t count,
                   Metrics::detail::LiveRows& rows) {
    Metrics::MetricsEvent event;
    for (std::uint32_t i = 0; i < count; ++i) {
        try {
            event.Read(buffer);
        } catch (const Metrics::MetricsBufferError& error) {
            return "event " + std::to_string(i + 1) + ": " + error.what();
        }
        rows.Write(event);
    }
    return {};
}

std::string PlaceIn(StreamingXml::XmlScanner& scanner) {
    const auto [line, column] = scanner.TagPosition();
    return ":" + std::to_string(line) + ":" + std::to_string(column);
}

void ShowNotice(const std::string& text) {
    std::cerr << "metrics-rows: " << text << '\n';
}

}  // namespace

Table::Table(const Metrics::detail::CompiledRow& row, std::ostream& out, char separator)
    : row_(row),
      out_(out),
      separator_(separator),
      reader_(row,
              [this] {
                  reader_.AppendCurrent(lines_, separator_, true);
                  if (lines_.size() >= kWriteBlock) WriteLines();
              }),
      showsProgress_(Metrics::platform::IsErrorStreamTerminal()),
      nextProgress_(kLargeInput) {}

void Table::WriteHeader() {
    Metrics::detail::AppendHeader(lines_, Metrics::detail::ListColumns(row_, true), separator_);
}

void Table::ReadXml(const std::string& name, std::istream& in) {
    Metrics::detail::RowEngine engine(row_, reader_, reader_.Notices());
    StreamingXml::XmlScanner scanner(engine);
    scanner.TrackLines();
    if (row_.usesLines) scanner.GiveLines();
    scanner.SetInterrupt(&Metrics::platform::InterruptHandler::Flag());
    reader_.Notices().SetHandler(
        [&](const RowNotice& notice) { ShowNotice(name + PlaceIn(scanner) + ": " + notice.text); });
    try {
        Feed(scanner, in);
        if (!brokenOff_) engine.Finish();
        scanner.End();
    } catch (const Metrics::RowDefinitionError& error) {
        throw InputError(name + PlaceIn(scanner) + ": " + error.what());
    }
    if (in.bad()) throw InputError(name + ": cannot be read");
}

void Table::Feed(StreamingXml::XmlScanner& scanner, std::istream& in) {
    std::vector<char> block(kReadBlock);
    while (in.good() && !scanner.Stopped() && out_.good()) {
        in.read(block.data(), static_cast<std::streamsize>(block.size()));
        scanner.Feed({block.data(), static_cast<std::size_t>(in.gcount())});
        ShowProgress(static_cast<std::size_t>(in.gcount()));
    }
    brokenOff_ = scanner.Stopped() || !out_.good();
    ClearProgress();
}

void Table::ReadBuffer(const std::string& name, std::istream& in) {
    const Metrics::MetricsValueBuffer buffer(ReadBytes(name, in));
    const Metrics::MetricsBufferHeader header = buffer.ReadHeader();
    if (header.magic != Metrics::MetricsBufferHeader().magic || buffer.Bytes().size() < header.kSize)
        throw InputError(name + ": not an event buffer");
    Metrics::detail::LiveRows rows(reader_);
    reader_.Notices().SetHandler([&](const RowNotice& notice) { ShowNotice(name + ": " + notice.text); });
    std::string complaint;
    try {
        complaint = Replay(buffer, header.eventCount, rows);
        rows.End();
    } catch (const Metrics::RowDefinitionError& error) {
        complaint = error.what();
    }
    if (!complaint.empty()) throw InputError(name + ": " + complaint);
    brokenOff_ = !out_.good();
}

void Table::Finish() {
    reader_.GiveGroups();
    WriteLines();
    out_.flush();
}

void Table::ShowLeftOut() const {
    for (const std::string& total : reader_.Notices().Totals()) ShowNotice(total);
}

void Table::WriteLines() {
    out_.write(lines_.data(), static_cast<std::streamsize>(lines_.size()));
    lines_.clear();
}

void Table::ShowProgress(std::size_t bytes) {
    bytesRead_ += bytes;
    if (!showsProgress_ || bytesRead_ < nextProgress_) return;
    nextProgress_ = bytesRead_ + kProgressStep;
    std::cerr << '\r' << (bytesRead_ >> 20) << " MiB, " << Rows() << " rows" << std::flush;
}

void Table::ClearProgress() {
    if (showsProgress_ && bytesRead_ >= kLargeInput)
        std::cerr << '\r' << std::string(50, ' ') << '\r' << std::flush;
}
