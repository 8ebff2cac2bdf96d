#include "metrics/MetricsTimeStack.h"

#include <algorithm>

namespace Metrics {

namespace {

constexpr MetricsTimeStack::Times kNone = {0, 0};

// The user part is read from a coarser clock; over a short time it may seem to be more than the whole.
MetricsTimeStack::Times Difference(const MetricsTimeStack::Times& left,
                                   const MetricsTimeStack::Times& right) {
    const double processor = left.processor - right.processor;
    return {processor, std::min(left.user - right.user, processor)};
}

}  // namespace

void MetricsTimeStack::Start(const Times& start) {
    if (size_ == 0) return;
    if (IsMeasured()) {
        measured_.back() = {size_, start};
    } else {
        measured_.push_back({size_, start});
        measuredTop_ = size_;
    }
}

void MetricsTimeStack::PopMeasured() noexcept {
    const Times used = measured_.back().used;
    measured_.pop_back();
    measuredTop_ = measured_.empty() ? 0 : measured_.back().level;
    --size_;
    if (!IsMeasured()) return;
    Times& children = measured_.back().children;
    children.processor += used.processor;
    children.user += used.user;
}

void MetricsTimeStack::Update(const Times& now) noexcept {
    if (IsMeasured()) measured_.back().used = Difference(now, measured_.back().start);
}

const MetricsTimeStack::Times& MetricsTimeStack::Top() const noexcept {
    return IsMeasured() ? measured_.back().used : kNone;
}

MetricsTimeStack::Times MetricsTimeStack::TopExclusive() const noexcept {
    return IsMeasured() ? Difference(measured_.back().used, measured_.back().children) : kNone;
}

}  // namespace Metrics
