#include <windows.h>

#include <array>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

// The length is 0 for a failure and, by which of the calls it was, the buffer's size or more for no room.
template <std::size_t size>
std::string TextThatFits(const std::array<char, size>& buffer, DWORD length) {
    return length < size ? std::string(buffer.data(), length) : std::string();
}

}  // namespace

std::string ExecutablePath() {
    std::array<char, kExecutablePathBuffer> buffer;
    return TextThatFits(buffer,
                        GetModuleFileNameA(nullptr, buffer.data(), static_cast<DWORD>(buffer.size())));
}

std::string WorkingDirectory() {
    std::array<char, kWorkingDirectoryBuffer> buffer;
    return TextThatFits(buffer, GetCurrentDirectoryA(static_cast<DWORD>(buffer.size()), buffer.data()));
}

char PathSeparator() {
    return '\\';
}

bool IsPathSeparator(char c) {
    return c == '\\' || c == '/';
}

std::size_t DriveLength(std::string_view path) {
    return path.size() >= 2 && path[1] == ':' ? 2 : 0;
}

}  // namespace Metrics::platform
