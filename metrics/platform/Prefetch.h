#pragma once

#include <xmmintrin.h>

#include <cstddef>

namespace Metrics::platform {

// Asks for the cache line at `place`, which need not be valid memory, to be fetched meanwhile.
inline void Prefetch(const void* place) noexcept {
    _mm_prefetch(static_cast<const char*>(place), _MM_HINT_T0);
}

inline void Prefetch(const void* begin, std::size_t bytes) noexcept {
    constexpr std::size_t kLine = 64;
    for (std::size_t i = 0; i < bytes; i += kLine) Prefetch(static_cast<const std::byte*>(begin) + i);
}

}  // namespace Metrics::platform
