#include <windows.h>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

struct Monitor::Native {
    SRWLOCK lock = SRWLOCK_INIT;
    CONDITION_VARIABLE condition = CONDITION_VARIABLE_INIT;
};

Monitor::Monitor() : native_(std::make_unique<Native>()) {}

Monitor::~Monitor() = default;

void Monitor::lock() {
    AcquireSRWLockExclusive(&native_->lock);
}

void Monitor::unlock() {
    ReleaseSRWLockExclusive(&native_->lock);
}

void Monitor::WaitFor(int milliseconds) {
    SleepConditionVariableSRW(&native_->condition, &native_->lock, static_cast<DWORD>(milliseconds), 0);
}

void Monitor::NotifyAll() {
    WakeAllConditionVariable(&native_->condition);
}

}  // namespace Metrics::platform
