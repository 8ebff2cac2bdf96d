#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

// Zero means not asked yet. In the child of a fork both are wrong and are forgotten there, on its
// only thread.
thread_local std::uint32_t cachedThreadId = 0;
std::atomic<std::uint32_t> cachedProcessId = 0;

void ForgetIds() {
    cachedThreadId = 0;
    cachedProcessId.store(0, std::memory_order_relaxed);
}

// Before anything is cached and before any other handler, since handlers run in the order they were given and
// may ask for ids.
void ForgetIdsInForkChildren() {
    static std::atomic<bool> isRegistered = false;
    if (!isRegistered.exchange(true)) pthread_atfork(nullptr, nullptr, ForgetIds);
}

void WriteToErrorStream(const char* text) {
    // Nothing can be done about an error stream that takes nothing.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
}

}  // namespace

void OnForkChild(void (*handler)()) {
    ForgetIdsInForkChildren();
    pthread_atfork(nullptr, nullptr, handler);
}

std::uint32_t CurrentThreadId() {
    if (cachedThreadId == 0) {
        ForgetIdsInForkChildren();
        cachedThreadId = static_cast<std::uint32_t>(gettid());
    }
    return cachedThreadId;
}

std::uint32_t CurrentProcessId() {
    std::uint32_t id = cachedProcessId.load(std::memory_order_relaxed);
    if (id == 0) {
        ForgetIdsInForkChildren();
        id = static_cast<std::uint32_t>(getpid());
        cachedProcessId.store(id, std::memory_order_relaxed);
    }
    return id;
}

void PinLibrary() {}

void RaiseInvalidObject(const char* message) {
    WriteToErrorStream(message);
    WriteToErrorStream("\n");
    std::abort();
}

}  // namespace Metrics::platform
