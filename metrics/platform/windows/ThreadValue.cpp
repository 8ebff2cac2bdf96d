// The value of a thread stands in a slot of the system's own and ends when the loader tells that the thread
// does. Thread-local objects of the language cannot serve: mingw-w64 frees them before it runs destructors.
#include <windows.h>

#include <utility>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

DWORD valueSlot = TLS_OUT_OF_INDEXES;
DWORD endSlot = TLS_OUT_OF_INDEXES;  // what to call for the value; kept after that
using End = void (*)(void*);

void EndThread() {
    void* const value = TlsGetValue(valueSlot);
    if (value == nullptr) return;
    TlsSetValue(valueSlot, nullptr);
    reinterpret_cast<End>(TlsGetValue(endSlot))(value);
}

// The loader calls it before the first and after the last code of the library, and when a thread ends. That a
// process ends is no time to tidy up: a thread that was ended before may hold any lock, that of the heap too.
void NTAPI LoaderCallback(void*, DWORD reason, void*) {
    if (reason == DLL_PROCESS_ATTACH) {
        valueSlot = TlsAlloc();
        endSlot = TlsAlloc();
    } else if (reason == DLL_THREAD_DETACH) {
        EndThread();
    } else if (reason == DLL_PROCESS_DETACH) {
        // Destructors of statics are still to come.
        for (DWORD* slot : {&valueSlot, &endSlot}) TlsFree(std::exchange(*slot, TLS_OUT_OF_INDEXES));
    }
}

}  // namespace

// Where the linker gathers such callbacks.
#ifdef _MSC_VER
#pragma comment(linker, "/INCLUDE:_tls_used")
#pragma comment(linker, "/INCLUDE:metricsLoaderCallback")
#pragma section(".CRT$XLY", long, read)
extern "C" __declspec(allocate(".CRT$XLY")) const PIMAGE_TLS_CALLBACK metricsLoaderCallback = LoaderCallback;
#else
[[gnu::section(".CRT$XLY"), gnu::used]] const PIMAGE_TLS_CALLBACK metricsLoaderCallback = LoaderCallback;
#endif

void* ThreadValue() {
    const DWORD lastError = GetLastError();  // which the host may be about to read
    void* const value = TlsGetValue(valueSlot);
    SetLastError(lastError);
    return value;
}

bool SetThreadValue(void* value, void (*end)(void*)) {
    if (TlsGetValue(endSlot) != nullptr) return false;
    return TlsSetValue(endSlot, reinterpret_cast<void*>(end)) && TlsSetValue(valueSlot, value);
}

}  // namespace Metrics::platform
