#pragma once

#include <cstddef>

#ifndef __GNUC__
#include <xmmintrin.h>
#endif

namespace Metrics::platform {

// Asks for the cache line at `place`, which need not be valid memory, to be fetched meanwhile.
inline void Prefetch(const void* place) noexcept {
#ifdef __GNUC__
    // To GCC the intrinsic has no effect, so it leaves out calls of functions that do nothing else.
    asm volatile("prefetcht0 (%0)" : : "r"(place));
#else
    _mm_prefetch(static_cast<const char*>(place), _MM_HINT_T0);
#endif
}

inline void Prefetch(const void* begin, std::size_t bytes) noexcept {
    constexpr std::size_t kLine = 64;
    for (std::size_t i = 0; i < bytes; i += kLine) Prefetch(static_cast<const std::byte*>(begin) + i);
}

}  // namespace Metrics::platform
