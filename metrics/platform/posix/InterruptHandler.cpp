#include <signal.h>

#include <mutex>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may take no lock");

std::mutex countMutex;
int count = 0;
struct sigaction hostAction;

void NoteInterrupt(int) {
    interrupted.store(true, std::memory_order_relaxed);
}

}  // namespace

InterruptHandler::InterruptHandler() {
    const std::lock_guard lock(countMutex);
    if (count++ > 0) return;
    struct sigaction action {};
    action.sa_handler = NoteInterrupt;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &hostAction);
}

InterruptHandler::~InterruptHandler() {
    const std::lock_guard lock(countMutex);
    if (--count > 0) return;
    // The host may have set a handler of its own meanwhile; that one stays.
    struct sigaction current {};
    sigaction(SIGINT, nullptr, &current);
    if (current.sa_handler == NoteInterrupt) sigaction(SIGINT, &hostAction, nullptr);
}

const std::atomic<bool>& InterruptHandler::Flag() {
    return interrupted;
}

}  // namespace Metrics::platform
