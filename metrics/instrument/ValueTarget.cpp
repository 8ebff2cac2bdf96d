// Where METRICS_VALUE emits.
#include <algorithm>
#include <new>

#include "metrics/Context.h"
#include "metrics/Scope.h"
#include "metrics/instrument/CallSites.h"
#include "metrics/manager/ThreadContext.h"

namespace Metrics {

Scope* Scope::Innermost() {
    MetricsThreadContext* record = ThreadRecord();
    return record != nullptr ? record->Innermost() : nullptr;
}

// Nearly always the innermost scope of the thread is of its current context.
detail::ValueTarget Scope::FindValueTarget() noexcept {
    MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr) return {};
    Scope* innermost = record->Innermost();
    if (innermost != nullptr && innermost->body_.data.context_ == record->Current()) [[likely]]
        return {innermost, nullptr};
    return FindOtherTarget(*record);
}

detail::ValueTarget Scope::FindOtherTarget(MetricsThreadContext& record) noexcept {
    if (const detail::ContextState* current = record.Current()) {
        const auto& scopes = record.OpenScopes();
        const auto it = std::find_if(scopes.rbegin(), scopes.rend(), [current](const Scope* scope) {
            return scope->body_.data.context_ == current;
        });
        if (it != scopes.rend()) return {*it, nullptr};
        if (!current->IsUsable()) return {};
        if (Context* owner = current->owner.load(std::memory_order_relaxed)) return {nullptr, owner};
    }
    record.NoteLeftOut();
    return {};
}

void detail::EmitAt(CallSite& site, const ValueTarget& target, const MetricsValue& value) noexcept {
    try {
        const MetricsValue name = MetricsValue::Ref(KeepTexts(site).name);
        if (target.scope != nullptr) {
            target.scope->Emit(name, value);
        } else {
            target.context->Emit(name, value);
        }
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace Metrics
