#pragma once

#include "metrics/Export.h"

namespace Metrics {

namespace platform {
class Event;
}

/// An event of the operating system: threads wait for it until somebody sets it.
///
/// Any thread may call any operation. The event behind a signal is never released, so that nobody can be left
/// waiting on a handle that is gone; make few signals and keep them.
class METRICS_API MetricsSignal {
  public:
    /// A signal that is not set. One that resets itself (`autoReset`) lets exactly one waiter through per
    /// `set`; otherwise it stays set until `reset`.
    explicit MetricsSignal(bool autoReset = true);
    MetricsSignal(const MetricsSignal&) = delete;
    MetricsSignal& operator=(const MetricsSignal&) = delete;

    void set();
    void reset();

    /// Waits at most `ms` milliseconds, without limit when `ms` is -1. True only when the signal was set.
    bool wait(int ms);

  private:
    platform::Event& event_;
};

}  // namespace Metrics
