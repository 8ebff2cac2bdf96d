#pragma once

#include <cstdint>

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

/// What the process holds of the machine's memory, in KiB.
std::int64_t ResidentKiB();

}  // namespace Metrics::Testing
