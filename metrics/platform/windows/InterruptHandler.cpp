#include <windows.h>

#include <mutex>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

std::atomic<bool> interrupted = false;

std::mutex countMutex;
int count = 0;

// Runs on a thread that the system makes for it.
BOOL WINAPI NoteInterrupt(DWORD event) {
    if (event != CTRL_C_EVENT) return FALSE;
    interrupted.store(true, std::memory_order_relaxed);
    return TRUE;
}

}  // namespace

InterruptHandler::InterruptHandler() {
    const std::lock_guard lock(countMutex);
    if (count++ == 0) SetConsoleCtrlHandler(NoteInterrupt, TRUE);
}

InterruptHandler::~InterruptHandler() {
    const std::lock_guard lock(countMutex);
    if (--count == 0) SetConsoleCtrlHandler(NoteInterrupt, FALSE);
}

const std::atomic<bool>& InterruptHandler::Flag() {
    return interrupted;
}

}  // namespace Metrics::platform
