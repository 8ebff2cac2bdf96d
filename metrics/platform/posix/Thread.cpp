#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

struct ThreadStatus {
    char state = 0;
    std::uint64_t startTime = 0;
};

// Finds state and start time in the line that the kernel writes about a thread: "id (name) state 4 5 ... 22
// ...". The name may hold blanks and parentheses itself, so fields are counted from the last parenthesis.
ThreadStatus ParseStatus(std::string_view line) {
    const std::size_t nameEnd = line.rfind(')');
    if (nameEnd == std::string_view::npos || nameEnd + 2 >= line.size()) return {};
    line.remove_prefix(nameEnd + 2);
    ThreadStatus status{.state = line.front(), .startTime = 0};

    constexpr int kFieldsFromStateToStartTime = 19;
    for (int field = 0; field < kFieldsFromStateToStartTime; ++field) {
        line.remove_prefix(std::min(line.find(' '), line.size() - 1) + 1);
        if (line.empty()) return {};
    }
    std::from_chars(line.data(), line.data() + line.size(), status.startTime);
    return status;
}

// All zero when the kernel tells nothing about such a thread.
ThreadStatus ReadStatus(std::uint32_t threadId) {
    std::array<char, 64> path;
    std::snprintf(path.data(), path.size(), "/proc/self/task/%u/stat", threadId);
    const int file = open(path.data(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return {};
    std::array<char, 1024> line;
    const ssize_t length = read(file, line.data(), line.size());
    close(file);
    return length <= 0 ? ThreadStatus() : ParseStatus({line.data(), static_cast<std::size_t>(length)});
}

constinit thread_local bool threadValueHasEnded = false;

struct ThreadValueGuard {
    void (*end)(void*);

    ~ThreadValueGuard() {
        threadValueHasEnded = true;
        end(std::exchange(threadValue, nullptr));
    }
};

}  // namespace

constinit thread_local void* threadValue = nullptr;

bool SetThreadValue(void* value, void (*end)(void*)) {
    if (threadValueHasEnded) return false;
    static thread_local const ThreadValueGuard guard{end};
    static_cast<void>(guard);
    threadValue = value;
    return true;
}

void SetCurrentThreadName(const char* name) {
    std::array<char, 16> cut{};
    std::strncpy(cut.data(), name, cut.size() - 1);
    pthread_setname_np(pthread_self(), cut.data());
}

SignalBlocker::SignalBlocker() {
    static_assert(sizeof(sigset_t) <= sizeof(previousMask_) && alignof(sigset_t) <= alignof(std::uint64_t));
    sigset_t asynchronous;
    sigfillset(&asynchronous);
    // What the thread itself causes must reach it: blocked, it would end the process without a word.
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
        sigdelset(&asynchronous, own);
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &asynchronous, &previous);
    std::memcpy(previousMask_, &previous, sizeof(previous));
}

SignalBlocker::~SignalBlocker() {
    sigset_t previous;
    std::memcpy(&previous, previousMask_, sizeof(previous));
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

namespace {

sigset_t OnlyBrokenPipe() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

bool IsPending(int signal) {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

}  // namespace

// A signal that was pending before is the host's and stays.
BrokenPipeGuard::BrokenPipeGuard() : mustTake_(!IsPending(SIGPIPE)) {
    const sigset_t set = OnlyBrokenPipe();
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &set, &previous);
    mustUnblock_ = sigismember(&previous, SIGPIPE) == 0;
}

BrokenPipeGuard::~BrokenPipeGuard() {
    const sigset_t set = OnlyBrokenPipe();
    constexpr timespec kNow{0, 0};
    while (mustTake_ && IsPending(SIGPIPE) && sigtimedwait(&set, nullptr, &kNow) == -1 && errno == EINTR) {
    }
    if (mustUnblock_) pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

// The kernel counts a thread's start in ticks since boot: with the id that names it until the same id has
// come round again within one tick.
void StartThread(std::function<void()> body) {
    std::thread(std::move(body)).detach();
}

struct ThreadHandle::Identity {
    std::uint32_t processId;
    std::uint32_t threadId;
    std::uint64_t startTime;
};

ThreadHandle ThreadHandle::Current() {
    const std::uint32_t threadId = CurrentThreadId();
    ThreadHandle handle;
    handle.identity_ = std::make_shared<const Identity>(
        Identity{CurrentProcessId(), threadId, ReadStatus(threadId).startTime});
    return handle;
}

bool ThreadHandle::IsAlive() const {
    if (!identity_ || identity_->processId != CurrentProcessId()) return false;
    if (tgkill(getpid(), static_cast<pid_t>(identity_->threadId), 0) != 0) return false;
    // Somebody has that id. Where /proc cannot be read (no descriptor left, not mounted) it is taken for the
    // same thread: a living one must never count as dead.
    const ThreadStatus status = ReadStatus(identity_->threadId);
    if (status.state == 0 || identity_->startTime == 0) return true;
    const bool isEnded = status.state == 'Z' || status.state == 'X';
    return !isEnded && status.startTime == identity_->startTime;
}

}  // namespace Metrics::platform
