#include "metrics/ScopeData.h"

#include <utility>

#include "metrics/instrument/ScopeDataInline.h"

namespace Metrics {

void ScopeData::Initialize(MetricsEventType type) {
    MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr) return;
    if (owner_ != 0) Unpin();
    detail::ContextState* context = record->Current();
    stamp_ = Stamp::Take(type, *record, context);
    if (context == nullptr) return;
    record->PinCurrent();
    owner_ = record->Serial();
}

void ScopeData::Unpin() noexcept {
    MetricsThreadContext* record = ThreadRecord();
    const std::uint64_t owner = std::exchange(owner_, 0);
    if (record != nullptr && record->Serial() == owner) {
        record->Unpin(stamp_.context);
    } else {
        MetricsThreadContext::Depart(owner, {nullptr, stamp_.context});
    }
}

}  // namespace Metrics
