#pragma once

#include <cstdint>

namespace Metrics::Testing {

// GCC tells by macros, clang by features.
#if !defined(__has_feature)
#define __has_feature(feature) 0
#endif

#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
inline constexpr bool kThreadSanitized = true;
#else
inline constexpr bool kThreadSanitized = false;
#endif

#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
inline constexpr bool kSanitized = true;  // slower, and memory is kept back to find its misuse
#else
inline constexpr bool kSanitized = kThreadSanitized;
#endif

/// What the process holds of the machine's memory, in KiB.
std::int64_t ResidentKiB();

}  // namespace Metrics::Testing
