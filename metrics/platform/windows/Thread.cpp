#include <windows.h>

#include <string>

#include "metrics/platform/Platform.h"
#include "metrics/platform/windows/Error.h"

namespace Metrics::platform {

std::uint32_t CurrentThreadId() {
    return GetCurrentThreadId();
}

std::uint32_t CurrentProcessId() {
    return GetCurrentProcessId();
}

void SetCurrentThreadName(const char* name) {
    // Known to Windows 10 and later only, hence looked up.
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const FARPROC found = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription");
    if (found == nullptr) return;
    std::wstring wide;
    for (; *name != '\0'; ++name) wide.push_back(static_cast<unsigned char>(*name));
    reinterpret_cast<SetDescription>(reinterpret_cast<void*>(found))(GetCurrentThread(), wide.c_str());
}

SignalBlocker::SignalBlocker() {
    static_cast<void>(previousMask_);
}

SignalBlocker::~SignalBlocker() = default;

BrokenPipeGuard::BrokenPipeGuard() = default;

BrokenPipeGuard::~BrokenPipeGuard() = default;

struct ThreadHandle::Identity {
    HANDLE handle = nullptr;

    Identity() {
        if (!DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &handle,
                             SYNCHRONIZE, FALSE, 0)) {
            ThrowLastError("DuplicateHandle");
        }
    }
    ~Identity() { CloseHandle(handle); }
    Identity(const Identity&) = delete;
    Identity& operator=(const Identity&) = delete;
};

ThreadHandle ThreadHandle::Current() {
    ThreadHandle handle;
    handle.identity_ = std::make_shared<const Identity>();
    return handle;
}

bool ThreadHandle::IsAlive() const {
    return identity_ && WaitForSingleObject(identity_->handle, 0) == WAIT_TIMEOUT;
}

}  // namespace Metrics::platform
