#include "metrics/MetricsTimeStack.h"

#include <algorithm>
#include <iterator>

namespace Metrics {

namespace {

constexpr MetricsTimeStack::Times kNone = {0, 0};

// The user part is read from a coarser clock; over a short time it may seem to be more than the whole.
MetricsTimeStack::Times Difference(const MetricsTimeStack::Times& left,
                                   const MetricsTimeStack::Times& right) {
    const double processor = std::max(left.processor - right.processor, 0.0);
    return {processor, std::clamp(left.user - right.user, 0.0, processor)};
}

}  // namespace

void MetricsTimeStack::Start(const Times& start) {
    if (size_ == 0) return;
    if (IsMeasured()) {
        measured_.back() = {++lastId_, size_, start};
    } else {
        measured_.push_back({++lastId_, size_, start});
        measuredTop_ = size_;
    }
}

void MetricsTimeStack::PopMeasured() noexcept {
    Remove(std::prev(measured_.end()));
    --size_;
}

// It stays on the stack as one that is not measured.
void MetricsTimeStack::Remove(std::vector<Entry>::iterator entry) noexcept {
    if (entry != measured_.begin() && std::prev(entry)->level + 1 == entry->level) {
        Times& children = std::prev(entry)->children;
        children.processor += entry->used.processor;
        children.user += entry->used.user;
    }
    measured_.erase(entry);
    measuredTop_ = measured_.empty() ? 0 : measured_.back().level;
}

MetricsTimeStack::Figures MetricsTimeStack::Stop(std::uint64_t id, const Times& now) noexcept {
    const auto found =
        std::find_if(measured_.rbegin(), measured_.rend(), [id](const Entry& e) { return e.id == id; });
    if (found == measured_.rend()) return {};
    const auto entry = std::prev(found.base());
    entry->used = Difference(now, entry->start);
    const Figures figures{entry->used, Difference(entry->used, entry->children)};
    Remove(entry);
    return figures;
}

void MetricsTimeStack::PopUnmeasured() noexcept {
    if (size_ == measured_.size()) return;
    // What stands above moves down by one.
    std::size_t level = size_;
    for (auto it = measured_.rbegin(); it != measured_.rend() && it->level == level; ++it, --level) {
        --it->level;
    }
    --size_;
    measuredTop_ = measured_.empty() ? 0 : measured_.back().level;
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
