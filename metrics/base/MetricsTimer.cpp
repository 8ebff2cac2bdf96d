#include "metrics/MetricsTimer.h"

#include <atomic>
#include <cstdint>

#include "metrics/platform/Platform.h"

namespace Metrics {

namespace {

// Set up without a lock: threads that race for the very first reading may all do it, the last one wins.
// Whoever sees the flag sees the other two.
struct Clock {
    std::atomic<bool> initialised{false};
    std::atomic<double> secondsPerTick{0};
    std::atomic<std::int64_t> startCount{0};
};

Clock clock;

void Initialise() {
    clock.secondsPerTick.store(1.0 / static_cast<double>(platform::PerformanceFrequency()),
                               std::memory_order_relaxed);
    clock.startCount.store(platform::PerformanceCounter(), std::memory_order_relaxed);
    clock.initialised.store(true, std::memory_order_release);
}

}  // namespace

double MetricsTimer::GetApplicationElapsedSecs() {
    if (!clock.initialised.load(std::memory_order_acquire)) Initialise();
    const std::int64_t count =
        platform::PerformanceCounter() - clock.startCount.load(std::memory_order_relaxed);
    return static_cast<double>(count) * clock.secondsPerTick.load(std::memory_order_relaxed);
}

MetricsTimer::MetricsTimer(bool start) {
    Update();
    running_ = start;
}

MetricsTimer::~MetricsTimer() {
    Stop();
}

void MetricsTimer::Start() {
    Update();
    running_ = true;
}

void MetricsTimer::Stop() {
    Update();
    running_ = false;
}

void MetricsTimer::Reset() {
    Update();
    elapsed_ = 0;
}

double MetricsTimer::ElapsedSec() {
    Update();
    return elapsed_;
}

double MetricsTimer::ElapsedMsec() {
    return ElapsedSec() * 1000.0;
}

void MetricsTimer::Update() {
    const double now = GetApplicationElapsedSecs();
    if (running_) elapsed_ += now - last_;
    last_ = now;
}

}  // namespace Metrics
