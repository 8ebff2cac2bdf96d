#include "metrics/output/NestedWriter.h"

namespace Metrics::detail {

MetricsEvent ForceNothing() {
    return MetricsEvent(MetricsEvent::PackHeader(MetricsEventType::DemuxSynthesized, 0, 0), 0, {}, 0);
}

// The depth counts openings less closings, whatever the closings ended. It stands where the target came too
// late to see all that was opened, for then everything that it saw is ended.
MetricsEvent Nesting::Forced(const MetricsEvent& event) {
    const auto ended = static_cast<std::int32_t>(elements_.Leave(ContextOf(event)));
    const auto counted = static_cast<std::int32_t>(event.param1.AsInt64());
    MetricsEvent forced = event;
    if (elements_.Size() != 0 || counted < ended) forced.param1 = ended;
    return forced;
}

}  // namespace Metrics::detail
