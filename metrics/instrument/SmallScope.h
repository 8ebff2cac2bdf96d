#pragma once

#include <new>
#include <optional>

#include "metrics/Scope.h"
#include "metrics/instrument/OnContext.h"
#include "metrics/manager/EventBuilder.h"
#include "metrics/platform/Platform.h"

namespace Metrics {

/// The scope around what a subscope emits: on the context of the scope that owns the subscope, and not timed
/// itself. Not there, and silent, when that context cannot be reached from this thread or there is no memory.
class SmallScope {
  public:
    SmallScope(const Scope& owner, const MetricsValue& name) {
        MetricsThreadContext* record = ThreadRecord();
        if (record == nullptr) return;
        context_ = owner.ReachableContext(record);
        if (context_ == nullptr) return;
        try {
            scope_.emplace(Scope::OnContext{}, *record, *context_, name, Scope::kNoTimeStack);
        } catch (const std::bad_alloc&) {
        }
    }

    void Emit(const MetricsValue& name, const MetricsValue& value) {
        if (scope_) scope_->Emit(name, value);
    }

    /// Brings the context's time stack up to date and returns it; null when there is no context.
    const MetricsTimeStack* MeasuredTimes() {
        if (context_ == nullptr) return nullptr;
        const platform::ProcessorTime now = platform::ThreadProcessorTime();
        context_->timeStack.Update({now.total, now.user});
        return &context_->timeStack;
    }

  private:
    detail::ContextState* context_ = nullptr;
    std::optional<Scope> scope_;
};

}  // namespace Metrics
