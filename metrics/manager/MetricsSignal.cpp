#include "metrics/MetricsSignal.h"

#include <atomic>

#include "metrics/platform/Platform.h"

namespace Metrics {

namespace {

struct KeptEvent {
    explicit KeptEvent(bool autoReset) : event(autoReset) {}
    platform::Event event;
    KeptEvent* next = nullptr;
};

// Events are kept for the life of the process, where a leak checker finds them. No lock: the child of a fork
// makes events while a thread that it left behind may have been in here.
platform::Event& NewEvent(bool autoReset) {
    static constinit std::atomic<KeptEvent*> all{nullptr};
    auto* kept = new KeptEvent(autoReset);
    kept->next = all.load();
    while (!all.compare_exchange_weak(kept->next, kept)) {
    }
    return kept->event;
}

}  // namespace

MetricsSignal::MetricsSignal(bool autoReset) : event_(NewEvent(autoReset)) {}

void MetricsSignal::set() {
    event_.Set();
}

void MetricsSignal::reset() {
    event_.Reset();
}

bool MetricsSignal::wait(int ms) {
    return event_.Wait(ms);
}

}  // namespace Metrics
