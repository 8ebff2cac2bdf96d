#include "tests/support/Module.h"

#include <windows.h>

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
