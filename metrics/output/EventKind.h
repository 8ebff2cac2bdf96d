#pragma once

#include <cstdint>

#include "metrics/MetricsEvent.h"

namespace Metrics::detail {

inline std::uint64_t ContextOf(const MetricsEvent& event) {
    return event.contextId.AsUInt64();
}

// For events of type ContextCreate.
inline std::uint64_t CreatedContext(const MetricsEvent& event) {
    return event.param2.AsUInt64();
}

inline bool CreatesRoot(const MetricsEvent& event) {
    return event.Type() == MetricsEventType::ContextCreate && event.param1.AsUInt64() == 0;
}

inline bool CreatesChild(const MetricsEvent& event) {
    return event.Type() == MetricsEventType::ContextCreate && event.param1.AsUInt64() != 0;
}

}  // namespace Metrics::detail
