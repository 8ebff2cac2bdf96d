// What failed calls of the system turn into, for this folder alone.
#pragma once

#include <windows.h>

#include <system_error>

namespace Metrics::platform {

[[noreturn]] inline void ThrowLastError(const char* what) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

}  // namespace Metrics::platform
