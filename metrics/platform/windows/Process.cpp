#include <windows.h>

#include <algorithm>
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

void WriteErrorLine(std::string_view line) {
    constexpr std::size_t kMost = 1000;
    DWORD written = 0;
    const auto size = static_cast<DWORD>(std::min(line.size(), kMost));
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), line.data(), size, &written, nullptr);
}

}  // namespace Metrics::platform
