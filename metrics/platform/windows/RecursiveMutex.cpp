#include <windows.h>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

struct RecursiveMutex::Native {
    CRITICAL_SECTION section;
};

RecursiveMutex::RecursiveMutex() : native_(std::make_unique<Native>()) {
    InitializeCriticalSection(&native_->section);
}

RecursiveMutex::~RecursiveMutex() {
    DeleteCriticalSection(&native_->section);
}

void RecursiveMutex::lock() {
    EnterCriticalSection(&native_->section);
}

void RecursiveMutex::unlock() {
    LeaveCriticalSection(&native_->section);
}

}  // namespace Metrics::platform
