#include <windows.h>

#include <cstdlib>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

void OnForkChild(void (*)()) {}

void PinLibrary() {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(&PinLibrary), &self);
}

void RaiseInvalidObject(const char*) {
    constexpr DWORD kInvalidObject = 0xE0000000;
    RaiseException(kInvalidObject, 0, 0, nullptr);
    std::abort();  // a debugger told it to go on
}

}  // namespace Metrics::platform
