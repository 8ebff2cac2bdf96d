#pragma once

#include <new>
#include <optional>

#include "metrics/Scope.h"
#include "metrics/instrument/OnContext.h"
#include "metrics/manager/EventBuilder.h"

namespace Metrics {

/// The scope around what a subscope emits: on the context of the scope that owns the subscope, and not timed
/// itself. Not there, and silent, when that context cannot be reached from this thread or there is no memory.
class SmallScope {
  public:
    SmallScope(const Scope& owner, const MetricsValue& name) {
        record_ = ThreadRecord();
        context_ = owner.ReachableContext(record_);
        if (context_ == nullptr) return;
        try {
            scope_.emplace(Scope::OnContext{}, *record_, *context_, name, Scope::kNoTimeStack);
        } catch (const std::bad_alloc&) {
        }
    }

    void Emit(const MetricsValue& name, const MetricsValue& value) {
        if (scope_) scope_->Emit(name, value);
    }

    /// The figures of an entry of the context's time stack, which end here; zeros without a context.
    auto StopMeasuring(std::uint64_t entry) {
        return context_ != nullptr ? record_->Contexts().StopMeasuring(*context_, entry)
                                   : detail::ContextStack::Figures{};
    }

  private:
    MetricsThreadContext* record_ = nullptr;
    detail::ContextState* context_ = nullptr;
    std::optional<Scope> scope_;
};

}  // namespace Metrics
