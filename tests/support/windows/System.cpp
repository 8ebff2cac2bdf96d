#include <windows.h>
// After windows.h.
#include <psapi.h>

#include "tests/support/Memory.h"
#include "tests/support/Module.h"
#include "tests/support/Wine.h"

std::int64_t Metrics::Testing::ResidentKiB() {
    PROCESS_MEMORY_COUNTERS counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    return static_cast<std::int64_t>(counters.WorkingSetSize / 1024);
}

bool Metrics::Testing::UnderWine() {
    return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

Module::Module(const char* path) : handle_(LoadLibraryA(path)) {}

void Module::Free() {
    FreeLibrary(static_cast<HMODULE>(handle_));
}

bool Module::IsPresent(const char* path) {
    return GetModuleHandleA(path) != nullptr;
}

Module::Address Module::FindAddress(const char* symbol) const {
    return reinterpret_cast<Address>(GetProcAddress(static_cast<HMODULE>(handle_), symbol));
}
