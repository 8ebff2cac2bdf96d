#include <process.h>
#include <windows.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

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

namespace {

using Body = std::function<void()>;

unsigned __stdcall RunBody(void* body) noexcept {
    const std::unique_ptr<Body> owned(static_cast<Body*>(body));
    (*owned)();
    return 0;
}

}  // namespace

void StartThread(std::function<void()> body) {
    auto owned = std::make_unique<Body>(std::move(body));
    const std::uintptr_t thread = _beginthreadex(nullptr, 0, RunBody, owned.get(), 0, nullptr);
    if (thread == 0) throw std::system_error(errno, std::generic_category(), "_beginthreadex");
    static_cast<void>(owned.release());
    CloseHandle(reinterpret_cast<HANDLE>(thread));
}

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
