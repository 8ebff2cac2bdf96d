#include "examples/wordcount/Processes.h"

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "examples/platform/Process.h"
#include "examples/wordcount/BufferFile.h"
#include "examples/wordcount/Pipeline.h"
#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsManager.h"
#include "metrics/MetricsOutput.h"

namespace WordCount {

namespace fs = std::filesystem;
using Metrics::Context;
using Metrics::MetricsOutput;
using Metrics::MetricsValueBuffer;

namespace {

fs::path EventsOf(const Options& options, unsigned copy) {
    return options.out / ("process-" + std::to_string(copy) + ".buffer");
}

fs::path CountsOf(const Options& options, unsigned copy) {
    return options.out / ("process-" + std::to_string(copy) + ".counts");
}

std::vector<std::string> ArgumentsOf(const Options& options, unsigned copy) {
    std::vector<std::string> arguments{
        "--share", std::to_string(copy), "--processes", std::to_string(options.processes),
        "--out",   options.out.string(), "--measure",   options.measure};
    if (options.mute) arguments.push_back("--mute");
    arguments.push_back(options.folder.string());
    return arguments;
}

void RunCopies(const Options& options) {
    METRICS_SCOPE("wait");
    std::vector<Platform::Process> copies;
    for (unsigned copy = 1; copy <= options.processes; ++copy)
        copies.emplace_back(ArgumentsOf(options, copy));
    unsigned failed = 0;
    for (auto& copy : copies) failed += copy.Wait() != 0 ? 1 : 0;
    if (failed != 0) throw std::runtime_error(std::to_string(failed) + " of the processes failed");
}

}  // namespace

Totals CountInProcesses(const Options& options, unsigned long long contextId) {
    Context run(0, contextId);
    run.SetName("run");
    METRICS_SCOPE("processes");
    RunCopies(options);
    Totals totals;
    for (unsigned copy = 1; copy <= options.processes; ++copy) {
        METRICS_SCOPE("merge");
        totals.Add(LoadBuffer(CountsOf(options, copy)));
        fs::remove(CountsOf(options, copy));
        auto events = std::make_shared<MetricsValueBuffer>(LoadBuffer(EventsOf(options, copy)));
        Metrics::MetricsManager::GetInstance().MergeRemoteEvents(std::move(events));
    }
    return totals;
}

void CountShare(const Options& options, const FileList& list) {
    MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::Buffer);
    Context process = Context::Root("process");
    const auto id = process.GetContextId();
    process.AddAttribute("number", std::to_string(options.share));
    process.OpenScope();  // before the files, so that they stand inside it
    output.WriteToBuffer(id);

    std::vector<File> share;
    for (std::size_t i = options.share - 1; i < list.files.size(); i += options.processes) {
        share.push_back(list.files[i]);
    }
    SaveBuffer(CountFiles(share, 1).ToBuffer(), CountsOf(options, options.share));
    process.Close();
    output.Close();
    if (output.HasError()) throw std::runtime_error(output.GetErrors().front());
    SaveBuffer(*output.GetBuffer(id), EventsOf(options, options.share));
}

}  // namespace WordCount
