#include "metrics/output/ElementStack.h"

namespace Metrics::detail {

std::size_t ElementStack::CloseFurtherOut(const Element& element) {
    for (std::size_t at = open_.size(); at != 0 && open_[at - 1].context == element.context; --at) {
        if (open_[at - 1].sequence != element.sequence) continue;
        const std::size_t ended = open_.size() - at + 1;
        open_.resize(at - 1, element);
        return ended;
    }
    return 0;
}

}  // namespace Metrics::detail
