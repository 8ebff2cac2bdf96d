#include "examples/webserver/Measurement.h"

#include <exception>
#include <iostream>

#include "examples/webserver/RequestContext.h"
#include "metrics/MetricsBitsUtils.h"
#include "metrics/MetricsManager.h"

namespace WebServer {

using Metrics::MetricsOutput;

namespace {

// One file for all requests, in the order in which they end: a slow one holds up nobody.
constexpr auto kMode = MetricsOutput::Mode::Completed;

// A row for each request. A figure that --bits leaves out is an empty field.
constexpr const char* kColumns = R"(
    [method]:request..method
    [path]:request..path
    [status]:request.status:i
    [parse]:request.parse.time.elapsed?:r:6
    [route]:request.route.time.elapsed?:r:6
    [render]:request.render.time.elapsed?:r:6
    [send]:request.send.time.elapsed?:r:6
)";

void Configure(const std::string& list) {
    const auto bits = Metrics::MetricsBitsUtils::GetMetricsBitsFromMnemonicList(list);
    if (bits == 0 && !list.empty()) throw UsageError("nothing known in \"" + list + '"');
    auto& manager = Metrics::MetricsManager::GetInstance();
    manager.SetBits(bits, false);
    manager.SetLogDelegate([](const std::string& message) { std::cerr << message + "\n"; });
}

}  // namespace

Measurement::Measurement(const Options& options) {
    if (options.measure == Measure::Off) return;
    if (!kHasMarks) throw UsageError("this program was compiled without marks");
    Configure(options.bits);
    session_.emplace();
    const bool rows = options.measure == Measure::Rows;
    output_.emplace(kMode, rows ? MetricsOutput::Format::CsvComma : MetricsOutput::Format::Xml);
    if (rows) output_->SetRowDefinition(kColumns);
    try {
        output_->OpenFile(options.out, 0);
    } catch (const std::exception& error) {
        throw std::runtime_error(options.out + ": " + error.what());
    }
}

std::vector<std::string> Measurement::Finish() {
    if (!output_) return {};
    output_->Close();
    return output_->GetErrors();
}

}  // namespace WebServer
