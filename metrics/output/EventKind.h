#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

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

// Events that stand together: several of one context, none of which changes whose turn it is, or any single
// one.
using EventRun = std::span<const MetricsEvent>;

inline bool ChangesTurn(const MetricsEvent& event) {
    return event.Type() <= MetricsEventType::DemuxSynthesized;
}

// The longest run at the front of `events`, which are not empty.
inline EventRun LeadingRun(std::span<const MetricsEvent> events) {
    const MetricsEvent& first = events.front();
    std::size_t length = 1;
    if (!ChangesTurn(first)) {
        while (length < events.size() && ContextOf(events[length]) == ContextOf(first) &&
               !ChangesTurn(events[length]))
            ++length;
    }
    return events.first(length);
}

}  // namespace Metrics::detail
