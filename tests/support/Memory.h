#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace Metrics::Testing {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;  // slower, and memory is kept back to find its misuse
#else
inline constexpr bool kSanitized = false;
#endif

#if defined(__SANITIZE_THREAD__)
inline constexpr bool kThreadSanitized = true;
#else
inline constexpr bool kThreadSanitized = false;
#endif

/// What the process holds of the machine's memory, in KiB; 0 where the system doesn't tell in this way.
inline std::int64_t ResidentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, 6, "VmRSS:") == 0) return std::stoll(line.substr(6));
    }
    return 0;
}

}  // namespace Metrics::Testing
