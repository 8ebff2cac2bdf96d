#include "metrics/ScopeData.h"

#include <utility>

#include "metrics/instrument/ScopeDataInline.h"

namespace Metrics {

void ScopeData::Initialize(MetricsEventType type) {
    MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr) return;
    if (owner_ != 0) Unpin();
    Take(type, *record);
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
