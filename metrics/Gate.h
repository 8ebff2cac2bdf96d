#pragma once

#include <atomic>

#include "metrics/Export.h"

namespace Metrics::detail {

/// The enable mask of the process, owned by `MetricsManager` (`SetBits` and its companions). It lives outside
/// the manager so that a gate is one inline load, whether or not a manager exists.
METRICS_API extern std::atomic<unsigned long long> enableMask;

/// The bits of a scope that can hold it back. All others only choose what an open scope measures.
inline constexpr unsigned long long kGateMask = 0xFFFFFFFFF0040000;

/// True when `bits` names no gate, or one that the enable mask lets through.
inline bool GatePasses(unsigned long long bits) noexcept {
    const unsigned long long gated = bits & kGateMask;
    return gated == 0 || (enableMask.load(std::memory_order_relaxed) & gated) != 0;
}

}  // namespace Metrics::detail
