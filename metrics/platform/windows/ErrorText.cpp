#include <windows.h>

#include <cstring>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

std::string ErrorText(int number) {
    char buffer[128] = {};
    return strerror_s(buffer, sizeof(buffer), number) == 0 ? buffer : "error " + std::to_string(number);
}

// The system's sentence without its full stop and its line end.
std::string SystemErrorText(std::uint32_t number) {
    char buffer[512] = {};
    constexpr DWORD kFlags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    FormatMessageA(kFlags, nullptr, number, 0, buffer, sizeof(buffer), nullptr);
    std::string text = buffer;
    text.erase(text.find_last_not_of(" \r\n.") + 1);
    return !text.empty() ? text : "error " + std::to_string(number);
}

}  // namespace Metrics::platform
