#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "metrics/MetricsEvent.h"
#include "metrics/manager/Core.h"
#include "metrics/manager/ThreadContext.h"
#include "metrics/values/CurrentTime.h"

namespace Metrics::detail {

struct alignas(64) SequenceCounter {
    std::atomic<std::uint32_t> next{0};
};

/// Numbers the events of the process. On a cache line of its own: every marking thread writes it.
extern constinit SequenceCounter sequenceCounter;

/// Read and then incremented, in two steps: two threads at the same moment may get the same number.
inline std::uint32_t NextSequence() {
    const std::uint32_t number = sequenceCounter.next.load(std::memory_order_relaxed);
    sequenceCounter.next.fetch_add(1, std::memory_order_relaxed);
    return number;
}

/// A header word for the thread of `record`, which may be null.
inline std::uint64_t BuildHeader(MetricsEventType type, const MetricsThreadContext* record) {
    return MetricsEvent::PackHeader(type, record != nullptr ? record->componentId : 0, NextSequence());
}

/// The time of an event of context `contextId`; events of no context carry none.
inline MetricsValue BuildTimestamp(std::uint64_t contextId) {
    return contextId != 0 ? MetricsValue(MetricsDateTime(CurrentTicks())) : MetricsValue();
}

/// Builds an event of context `contextId` straight in the queue of the thread's manager; without one it is
/// dropped.
inline void PostFor(const MetricsThreadContext& record, MetricsEventType type, std::uint64_t contextId,
                    MetricsValue param1 = {}, MetricsValue param2 = {}) noexcept {
    if (Core* core = record.Core().get()) {
        core->Post(MetricsEvent(Opaque64(BuildHeader(type, &record)), contextId, BuildTimestamp(contextId),
                                std::move(param1), std::move(param2)));
    }
}

}  // namespace Metrics::detail
