#include <mutex>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

struct RecursiveMutex::Native {
    std::recursive_mutex mutex;
};

RecursiveMutex::RecursiveMutex() : native_(std::make_unique<Native>()) {}

RecursiveMutex::~RecursiveMutex() = default;

void RecursiveMutex::lock() {
    native_->mutex.lock();
}

void RecursiveMutex::unlock() {
    native_->mutex.unlock();
}

}  // namespace Metrics::platform
