#pragma once

#include "metrics/Export.h"

namespace Metrics {

/// A stopwatch that adds up the time it runs, on the process's high-resolution clock. Copies are
/// independent. A timer belongs to one thread at a time; the clock itself may be read by any thread.
///
///     MetricsTimer timer(true);
///     Work();
///     double seconds = timer.ElapsedSec();
class METRICS_API MetricsTimer {
  public:
    /// Seconds since this function was first called in the process. When several threads make the very
    /// first call at the same moment, the zero point may still move by that moment.
    static double GetApplicationElapsedSecs();

    /// `start`: whether the timer runs from now on.
    explicit MetricsTimer(bool start);
    MetricsTimer(const MetricsTimer&) = default;
    MetricsTimer& operator=(const MetricsTimer&) = default;
    ~MetricsTimer();

    void Start();
    void Stop();
    /// Forgets the time so far; a running timer keeps running.
    void Reset();

    /// The time it ran, up to now, in seconds and in milliseconds.
    double ElapsedSec();
    double ElapsedMsec();

  private:
    void Update();

    bool running_ = false;
    double elapsed_ = 0;  // seconds
    double last_ = 0;     // clock reading at the last update
};

}  // namespace Metrics
