#include "metrics/platform/Platform.h"
#include "metrics/platform/windows/Error.h"

namespace Metrics::platform {

struct Event::Native {
    HANDLE handle;
};

Event::Event(bool autoReset) : native_(std::make_unique<Native>()) {
    native_->handle = CreateEventW(nullptr, autoReset ? FALSE : TRUE, FALSE, nullptr);
    if (native_->handle == nullptr) ThrowLastError("CreateEvent");
}

Event::~Event() {
    CloseHandle(native_->handle);
}

void Event::Set() {
    SetEvent(native_->handle);
}

void Event::Reset() {
    ResetEvent(native_->handle);
}

bool Event::Wait(int milliseconds) {
    const DWORD limit = milliseconds < 0 ? INFINITE : static_cast<DWORD>(milliseconds);
    return WaitForSingleObject(native_->handle, limit) == WAIT_OBJECT_0;
}

}  // namespace Metrics::platform
