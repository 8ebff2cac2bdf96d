#include "metrics/ContextGuard.h"

#include "metrics/manager/ThreadContext.h"

namespace Metrics {

ContextGuard::ContextGuard(Context& context)
    : state_(context.state_),
      wasClosed_(state_->closed.load(std::memory_order_relaxed)),
      wasEnabled_(state_->IsEnabled()),
      threadId_(state_->threadId.load(std::memory_order_relaxed)) {
    context.Validate();
    detail::Retain(state_);
    MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr) return;
    const auto place = record->Contexts().Find(state_);
    wasOnStack_ = place.isOnStack;
    index_ = place.index;
    above_ = place.above;
    wasCurrent_ = record->Current() == state_;
    if (wasCurrent_ || record->TakeContext(state_)) serial_ = record->Serial();
}

ContextGuard::~ContextGuard() {
    MetricsThreadContext* record = ThreadRecord();
    if (record != nullptr && record->Serial() == serial_ && record->Generation() == state_->generation) {
        const bool stays =
            state_->IsAlive() && (wasClosed_ || !state_->closed.load(std::memory_order_relaxed));
        const bool moved = !wasCurrent_ || !record->Contexts().Find(state_).isOnStack;
        if (moved || !stays) record->LeaveContext(state_, {wasOnStack_ && stays, index_, above_});
        if (stays) {
            state_->enabled.store(wasEnabled_, std::memory_order_relaxed);
            state_->threadId.store(threadId_, std::memory_order_relaxed);
        }
    }
    detail::Release(state_);
}

}  // namespace Metrics
