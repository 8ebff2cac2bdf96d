#pragma once

#include "metrics/ScopeData.h"
#include "metrics/manager/EventBuilder.h"

namespace Metrics {

// Inline, because every scope runs through it. The clock goes first: the sequence number has to wait until
// what the thread wrote before has left the processor, and that happens meanwhile.
inline ScopeData::Stamp ScopeData::Stamp::Take(MetricsEventType type, const MetricsThreadContext& record,
                                               detail::ContextState* context) {
    const std::uint64_t contextId = context != nullptr ? context->id : 0;
    const std::uint64_t ticks = contextId != 0 ? detail::CurrentTicks() : 0;
    return {contextId, ticks, detail::BuildHeader(type, &record),
            static_cast<std::uint32_t>(record.Generation()), context};
}

}  // namespace Metrics
