#include "metrics/ScopeData.h"

#include <utility>

#include "metrics/instrument/ScopeDataInline.h"

namespace Metrics {

void ScopeData::Initialize(MetricsEventType type) {
    MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr) return;
    if (owner_ != 0) Unpin();
    detail::ContextState* context = record->Current();
    event_ = context != nullptr && context->id != 0
                 ? Take(type, {}, *record, *context)
                 : MetricsEvent(Opaque64(detail::BuildHeader(type, record)), 0, {}, {}, {});
    context_ = context;
    generation_ = static_cast<std::uint32_t>(record->Generation());
    if (context == nullptr) return;
    record->PinCurrent();
    owner_ = record->Serial();
}

void ScopeData::Unpin() noexcept {
    MetricsThreadContext* record = ThreadRecord();
    const std::uint64_t owner = std::exchange(owner_, 0);
    if (record != nullptr && record->Serial() == owner) {
        record->Unpin(context_);
    } else {
        MetricsThreadContext::Depart(owner, {nullptr, context_});
    }
}

}  // namespace Metrics
