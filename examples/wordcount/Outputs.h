#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "examples/wordcount/Options.h"
#include "metrics/MetricsOutput.h"

namespace WordCount {

/// The files that the program writes about itself, all of the same events:
///
///     events.csv      every event as a line, as they came
///     ordered.csv     the same, context by context, in the order in which they end
///     file-*.xml      an XML file for each file that was counted, or
///     run.xml         one for all of them, if other processes do the work
///     stages.csv      a row for each stage of each file
///     summary.csv     a row for each kind of stage
///
/// They are complete once `Close` has returned.
class Outputs {
  public:
    /// Makes the folder and opens the files. Throws std::runtime_error, and then leaves no file behind.
    explicit Outputs(const Options& options);

    /// The id of the context that is written to run.xml; 0 if there is none.
    unsigned long long RunContext() const { return runContext_; }

    /// Waits until everything has reached the files, and closes them.
    void Close();

    /// What could not be written.
    std::vector<std::string> Problems() const;

  private:
    void Open(const Options& options);
    void OpenTables(const Options& options);
    template <class Function>
    void OpenFile(const std::filesystem::path& path, Function open);
    void RemoveFiles();

    Metrics::MetricsOutput unordered_;
    Metrics::MetricsOutput ordered_;
    Metrics::MetricsOutput xml_;
    Metrics::MetricsOutput stages_;
    Metrics::MetricsOutput summary_;
    const std::array<Metrics::MetricsOutput*, 5> all_{&unordered_, &ordered_, &xml_, &stages_, &summary_};
    unsigned long long runContext_ = 0;
    std::vector<std::filesystem::path> opened_;
};

}  // namespace WordCount
