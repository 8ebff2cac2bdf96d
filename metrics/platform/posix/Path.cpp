#include <unistd.h>

#include <array>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

std::string ExecutablePath() {
    // readlink cuts without saying so and adds no NUL: a buffer that it fills has no room for the NUL.
    std::array<char, kExecutablePathBuffer> buffer;
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= buffer.size()) return {};
    return {buffer.data(), static_cast<std::size_t>(length)};
}

std::string WorkingDirectory() {
    std::array<char, kWorkingDirectoryBuffer> buffer;
    return getcwd(buffer.data(), buffer.size()) == nullptr ? std::string() : std::string(buffer.data());
}

char PathSeparator() {
    return '/';
}

bool IsPathSeparator(char c) {
    return c == '/';
}

std::size_t DriveLength(std::string_view path) {
    return path.starts_with('/') ? 1 : 0;
}

}  // namespace Metrics::platform
