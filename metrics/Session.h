#pragma once

#include "metrics/Export.h"

namespace Metrics {

/// Measures while it lives: the constructor starts the manager and switches `Collecting` on; the destructor
/// lets the subscribers get what was posted, switches it off and shuts the manager down.
///
///     int main() {
///         Metrics::Session session;
///         Metrics::MetricsOutput output(Metrics::MetricsOutput::Mode::Completed,
///         Metrics::MetricsOutput::Format::Xml);
///         ...
///     }
///
/// One at a time, for the program's life or a test's. Outputs are declared after it, so that they close
/// before it.
class METRICS_API Session {
  public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
};

}  // namespace Metrics
