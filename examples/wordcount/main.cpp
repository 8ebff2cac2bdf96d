// Counts the words in all files of a folder, and measures itself doing so.
#include <chrono>
#include <cstddef>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "examples/wordcount/FileList.h"
#include "examples/wordcount/Options.h"
#include "examples/wordcount/Outputs.h"
#include "examples/wordcount/Pipeline.h"
#include "examples/wordcount/Processes.h"
#include "examples/wordcount/Report.h"
#include "metrics/MetricsBitsUtils.h"
#include "metrics/MetricsManager.h"
#include "metrics/Scope.h"
#include "metrics/Session.h"

namespace {

using namespace WordCount;

enum ExitCode { kDone = 0, kFailed = 1, kUsage = 64 };

// What the library is told before anything is measured. Throws UsageError.
void Configure(const Options& options) {
    using Metrics::MetricsBitsUtils;
    auto& manager = Metrics::MetricsManager::GetInstance();
    manager.SetComponentId(MetricsBitsUtils::GetMetricsBitFromMnemonic("tool"));
    auto bits = MetricsBitsUtils::GetMetricsBitsFromMnemonicList(options.measure);
    if (bits == 0 && !options.measure.empty())
        throw UsageError("nothing known in \"" + options.measure + '"');
    if (options.mute) bits &= ~Metrics::Scope::kMemory;  // muting would leave it in
    manager.SetBits(bits, false);
    manager.SetLogDelegate(
        [](const std::string& message) { std::cerr << "metrics-demo: " + message + "\n"; });
}

// Returns how many there were.
std::size_t PrintProblems(const std::vector<std::string>& problems) {
    for (const std::string& problem : problems) std::cerr << "metrics-demo: " << problem << '\n';
    return problems.size();
}

ExitCode Run(const Options& options) {
    using Clock = std::chrono::steady_clock;
    const FileList list = ListFiles(options.folder, options.out);
    Configure(options);
    const Metrics::Session session;
    if (options.share != 0) return CountShare(options, list), kDone;
    Outputs outputs(options);

    const auto start = Clock::now();
    const Totals totals = options.processes != 0 ? CountInProcesses(options, outputs.RunContext())
                                                 : CountFiles(list.files, options.threads);
    const auto worked = Clock::now();
    outputs.Close();
    const Durations took{worked - start, Clock::now() - worked};

    PrintTotals(std::cout, totals, took);
    PrintFiles(std::cout, options.out, took);
    PrintSummary(std::cout, options.out);
    PrintCommonest(std::cout, totals);
    const std::size_t problems =
        PrintProblems(list.problems) + PrintProblems(totals.Problems()) + PrintProblems(outputs.Problems());
    return problems == 0 ? kDone : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = ParseOptions(argc, argv);
        if (!options.help) return Run(options);
        PrintHelp(std::cout);
        return kDone;
    } catch (const UsageError& error) {
        std::cerr << "metrics-demo: " << error.what() << "\nTry metrics-demo --help.\n";
        return kUsage;
    } catch (const std::exception& error) {
        std::cerr << "metrics-demo: " << error.what() << '\n';
        return kFailed;
    }
}
