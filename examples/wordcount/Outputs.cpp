#include "examples/wordcount/Outputs.h"

#include <exception>
#include <stdexcept>
#include <system_error>

#include "examples/wordcount/OutputFolder.h"

namespace WordCount {

namespace fs = std::filesystem;
using Metrics::MetricsOutput;

namespace {

// A stage is what stands directly in the element of a file and was timed. What else it has depends on the
// stage and on what is measured.
constexpr const char* kStages = R"(
    [path]:file..path
    [stage]:nodename(file.*.time, 1)
    [wall]:file.*.time.elapsed:r:6
    [processor]:file.*.time.proc:r:6
    [user]:file.*.time.user:r:6
    [growth]:file.*.mem.delta?:i
    [bytes]:file.*.bytes?:i
    [words]:file.*.words?:i
)";

constexpr const char* kSummary = R"(
    [stage]:pivotpath(file.*)
    [count]:count(file.*.time.elapsed)
    [sum]:sum(file.*.time.elapsed):r:6
    [mean]:mean(file.*.time.elapsed):r:6
    [deviation]:stdev(file.*.time.elapsed):r:6
    [least]:min(file.*.time.elapsed):r:6
    [most]:max(file.*.time.elapsed):r:6
    #count(file.*.time.elapsed) > 0
)";

}  // namespace

Outputs::Outputs(const Options& options)
    : unordered_(MetricsOutput::Mode::Completed, MetricsOutput::Format::RawUnordered),
      ordered_(MetricsOutput::Mode::Completed, MetricsOutput::Format::Raw),
      xml_(MetricsOutput::Mode::PerContext, MetricsOutput::Format::Xml),
      stages_(MetricsOutput::Mode::Completed, MetricsOutput::Format::CsvComma),
      summary_(MetricsOutput::Mode::Completed, MetricsOutput::Format::CsvComma) {
    try {
        ClearOutputFolder(options.out);
        Open(options);
    } catch (...) {
        Close();
        RemoveFiles();
        throw;
    }
}

template <class Function>
void Outputs::OpenFile(const fs::path& path, Function open) {
    try {
        open(path.string());
    } catch (const std::exception& error) {
        throw std::runtime_error(path.string() + ": " + error.what());
    }
    opened_.push_back(path);
}

void Outputs::Open(const Options& options) {
    if (options.mute) {
        for (MetricsOutput* output : all_) output->MuteVolatileData();
    }
    OpenFile(options.out / "events.csv", [this](const auto& name) { unordered_.OpenFile(name, 0); });
    OpenFile(options.out / "ordered.csv", [this](const auto& name) { ordered_.OpenFile(name, 0); });
    if (options.processes == 0) {
        xml_.SetWildcardedOutputFile((options.out / "file-*.xml").string());
    } else {
        OpenFile(options.out / "run.xml",
                 [this](const auto& name) { runContext_ = xml_.OpenNewContextAndFile(name); });
    }
    OpenTables(options);
}

void Outputs::OpenTables(const Options& options) {
    stages_.SetRowDefinition(kStages);
    summary_.SetRowDefinition(kSummary);
    OpenFile(options.out / "stages.csv", [this](const auto& name) { stages_.OpenFile(name, 0); });
    OpenFile(options.out / "summary.csv", [this](const auto& name) { summary_.OpenFile(name, 0); });
}

void Outputs::RemoveFiles() {
    std::error_code ignored;
    for (const fs::path& path : opened_) fs::remove(path, ignored);
}

void Outputs::Close() {
    for (MetricsOutput* output : all_) output->Close();
}

std::vector<std::string> Outputs::Problems() const {
    std::vector<std::string> problems;
    for (const MetricsOutput* output : all_) {
        for (const std::string& error : output->GetErrors()) problems.push_back(error);
    }
    return problems;
}

}  // namespace WordCount
