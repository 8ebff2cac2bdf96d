#include "metrics/manager/EventBuilder.h"

namespace Metrics {

namespace detail {

constinit SequenceCounter sequenceCounter;

}  // namespace detail

MetricsEvent::MetricsEvent(MetricsEventType type) {
    const MetricsThreadContext* record = ThreadRecord();
    const std::uint64_t context = record != nullptr ? record->CurrentId() : 0;
    header = Opaque64(detail::BuildHeader(type, record));
    contextId = context;
    timestamp = detail::BuildTimestamp(context);
}

}  // namespace Metrics
