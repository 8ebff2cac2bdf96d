#include <chrono>
#include <condition_variable>
#include <mutex>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

struct Monitor::Native {
    std::mutex mutex;
    std::condition_variable condition;
};

Monitor::Monitor() : native_(std::make_unique<Native>()) {}

Monitor::~Monitor() = default;

void Monitor::lock() {
    native_->mutex.lock();
}

void Monitor::unlock() {
    native_->mutex.unlock();
}

void Monitor::WaitFor(int milliseconds) {
    std::unique_lock lock(native_->mutex, std::adopt_lock);
    native_->condition.wait_for(lock, std::chrono::milliseconds(milliseconds));
    lock.release();
}

void Monitor::NotifyAll() {
    native_->condition.notify_all();
}

}  // namespace Metrics::platform
