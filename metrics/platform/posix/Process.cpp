#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

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

void WriteToErrorStream(std::string_view text) {
    // Nothing can be done about an error stream that takes nothing.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
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

// As few bytes as a pipe that is ready takes at once. A terminal may stop a background process that writes to
// it, but not a thread that has the signal blocked.
void WriteErrorLine(std::string_view line) {
    constexpr std::size_t kMost = 1000;
    const SignalBlocker blocker;
    const BrokenPipeGuard guard;
    pollfd stream{STDERR_FILENO, POLLOUT, 0};
    if (poll(&stream, 1, 0) == 1 && (stream.revents & POLLOUT) != 0)
        WriteToErrorStream(line.substr(0, kMost));
}

}  // namespace Metrics::platform
