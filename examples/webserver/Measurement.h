#pragma once

#include <optional>
#include <string>
#include <vector>

#include "examples/webserver/Options.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Session.h"

namespace WebServer {

/// What becomes of the marks, for the time the program runs. With Measure::Off nothing is started: the marks
/// are there and cost what their gates cost.
class Measurement {
  public:
    /// Throws UsageError for bits that don't exist, std::runtime_error when the file cannot be opened.
    explicit Measurement(const Options& options);

    /// Waits until everything is written. Returns what went wrong.
    std::vector<std::string> Finish();

  private:
    std::optional<Metrics::Session> session_;
    std::optional<Metrics::MetricsOutput> output_;  // closes before the session ends
};

}  // namespace WebServer
