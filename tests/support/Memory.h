#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace Metrics::Testing {

// GCC tells by macros, clang by features.
#if defined(__SANITIZE_THREAD__)
#define METRICS_TEST_TSAN 1
#elif defined(__SANITIZE_ADDRESS__)
#define METRICS_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define METRICS_TEST_TSAN 1
#elif __has_feature(address_sanitizer)
#define METRICS_TEST_ASAN 1
#endif
#endif

#if defined(METRICS_TEST_TSAN)
inline constexpr bool kThreadSanitized = true;
#else
inline constexpr bool kThreadSanitized = false;
#endif

#if defined(METRICS_TEST_ASAN)
inline constexpr bool kSanitized = true;  // slower, and memory is kept back to find its misuse
#else
inline constexpr bool kSanitized = kThreadSanitized;
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
