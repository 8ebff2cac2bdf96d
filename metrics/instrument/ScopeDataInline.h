#pragma once

#include "metrics/ScopeData.h"
#include "metrics/manager/EventBuilder.h"

namespace Metrics {

// Inline, because every scope runs through it. The clock goes first: the sequence number has to wait until
// what the thread wrote before has left the processor, and that happens meanwhile.
inline MetricsEvent ScopeData::Take(MetricsEventType type, const MetricsValue& about,
                                    const MetricsThreadContext& record, const detail::ContextState& context) {
    const MetricsDateTime now(detail::CurrentTicks());
    return {detail::BuildHeader(type, &record), context.id, now, about};
}

inline ScopeData::ScopeData(const MetricsValue& about, const MetricsThreadContext& record,
                            detail::ContextState& context, bool pinned)
    : event_(Take(MetricsEventType::ScopeOpen, about, record, context)),
      context_(&context),
      owner_(pinned ? record.Serial() : 0),
      generation_(static_cast<std::uint32_t>(record.Generation())) {}

}  // namespace Metrics
