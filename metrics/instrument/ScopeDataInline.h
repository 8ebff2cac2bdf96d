#pragma once

#include "metrics/ScopeData.h"
#include "metrics/manager/EventBuilder.h"

namespace Metrics {

// Inline, because every scope runs through these.

inline void ScopeData::Fill(MetricsEventType type, const MetricsThreadContext& record,
                            detail::ContextState* context) {
    header_ = detail::BuildHeader(type, &record);
    generation_ = static_cast<std::uint32_t>(record.Generation());
    context_ = context;
    contextId_ = context != nullptr ? context->id : 0;
    ticks_ = contextId_ != 0 ? detail::CurrentTicks() : 0;
    initialized_ = true;
}

// On the thread's current context, which stays as long as this refers to it.
inline void ScopeData::Take(MetricsEventType type, MetricsThreadContext& record) {
    detail::ContextState* context = record.Current();
    if (context != nullptr) {
        record.PinCurrent();
        owner_ = record.Serial();
    }
    Fill(type, record, context);
}

}  // namespace Metrics
