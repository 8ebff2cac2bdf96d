#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "metrics/output/EventKind.h"

namespace Metrics::detail {

// Events of one context that stand together: one that changes the turn, or any number of others.
struct EventRun {
    std::span<const MetricsEvent> events;
    std::uint32_t openScopes = 0;  // how many more than before, modulo 2^32

    // The longest run at the front of `events`, which are all of one context.
    static EventRun Leading(std::span<const MetricsEvent> events) {
        return Leading(events, [](const MetricsEvent&) { return true; });
    }
    // The same of events of any contexts.
    static EventRun LeadingOfBatch(std::span<const MetricsEvent> events) {
        const std::uint64_t context = ContextOf(events.front());
        return Leading(events, [context](const MetricsEvent& event) { return ContextOf(event) == context; });
    }

  private:
    template <class Belongs>
    static EventRun Leading(std::span<const MetricsEvent> events, Belongs belongs) {
        std::uint32_t openScopes = 0;
        std::size_t length = 0;
        do {
            const MetricsEventType type = events[length].Type();
            if (type <= MetricsEventType::DemuxSynthesized) break;
            openScopes += type == MetricsEventType::ScopeOpen;
            openScopes -= type == MetricsEventType::ScopeClose;
            ++length;
        } while (length < events.size() && belongs(events[length]));
        return {events.first(length != 0 ? length : 1), openScopes};
    }
};

}  // namespace Metrics::detail
