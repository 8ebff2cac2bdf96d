#include "metrics/output/ElementStack.h"

namespace Metrics::detail {

std::size_t ElementStack::FindFurtherOut(const MetricsEvent& event) const {
    const std::uint64_t context = ContextOf(event);
    for (std::size_t at = open_.size(); at != 0 && open_[at - 1].context == context; --at)
        if (open_[at - 1].sequence == event.SequenceNumber()) return at - 1;
    return open_.size();
}

}  // namespace Metrics::detail
