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

void MetricsTimeStack::Start(const Times& start) noexcept {
    if (size_ != 0) At(size_ - 1) = {start, kNone, kNone, true};
}

void MetricsTimeStack::Append(const Entry& entry) {
    if (size_ < kInline)
        inline_[size_] = entry;
    else
        overflow_.push_back(entry);
    ++size_;
}

void MetricsTimeStack::PopMeasured() noexcept {
    const Entry top = At(size_ - 1);
    if (size_ > kInline) overflow_.pop_back();
    --size_;
    if (size_ == 0 || !top.measured || !At(size_ - 1).measured) return;
    Times& children = At(size_ - 1).children;
    children.processor += top.used.processor;
    children.user += top.used.user;
}

void MetricsTimeStack::Update(const Times& now) noexcept {
    if (size_ == 0) return;
    Entry& top = At(size_ - 1);
    if (top.measured) top.used = Difference(now, top.start);
}

const MetricsTimeStack::Times& MetricsTimeStack::Top() const noexcept {
    return IsMeasured() ? At(size_ - 1).used : kNone;
}

MetricsTimeStack::Times MetricsTimeStack::TopExclusive() const noexcept {
    return IsMeasured() ? Difference(At(size_ - 1).used, At(size_ - 1).children) : kNone;
}

}  // namespace Metrics
