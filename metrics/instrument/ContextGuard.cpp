#include "metrics/ContextGuard.h"

#include "metrics/manager/ThreadContext.h"

namespace Metrics {

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

}  // namespace

ContextGuard::ContextGuard(Context& context)
    : state_(context.state_),
      wasClosed_(state_->closed.load(kRelaxed)),
      wasEnabled_(state_->IsEnabled()),
      threadId_(state_->threadId.load(kRelaxed)) {
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
        const bool stays = state_->IsAlive() && (wasClosed_ || !state_->closed.load(kRelaxed));
        const bool moved = !wasCurrent_ || !record->Contexts().Find(state_).isOnStack;
        if (moved || !stays) record->LeaveContext(state_, {wasOnStack_ && stays, index_, above_});
        if (stays) {
            state_->enabled.store(wasEnabled_, kRelaxed);
            state_->threadId.store(threadId_, kRelaxed);
        }
    }
    detail::Release(state_);
}

}  // namespace Metrics
