#pragma once

#include <cstdint>

#include "metrics/Export.h"
#include "metrics/MetricsEventType.h"
#include "metrics/MetricsValue.h"

namespace Metrics {

class MetricsThreadContext;

namespace detail {
struct ContextState;
}

/// What all events of a scope have in common: header, context and time, taken once when the scope is
/// initialized. It keeps what it refers to of the context alive. Used on the thread that initialized it.
class METRICS_API ScopeData {
  public:
    ScopeData() = default;
    ~ScopeData() {
        if (owner_ != 0) Unpin();
    }
    ScopeData(const ScopeData&) = delete;
    ScopeData& operator=(const ScopeData&) = delete;

    /// Takes the calling thread's component and current context, the next sequence number and the current
    /// time.
    void Initialize(MetricsEventType type);

    bool IsInitialized() const { return initialized_; }
    /// The event header; see MetricsEvent.
    std::uint64_t Header() const { return header_; }
    /// 0 when there was no current context.
    std::uint64_t ContextId() const { return contextId_; }
    /// The time it was initialized; Int64 0 when there was no current context.
    MetricsValue Timestamp() const {
        return contextId_ != 0 ? MetricsValue(MetricsDateTime(ticks_)) : MetricsValue();
    }

  private:
    friend class Scope;

    void Take(MetricsEventType type, MetricsThreadContext& record);
    void Fill(MetricsEventType type, const MetricsThreadContext& record, detail::ContextState* context);
    void Unpin() noexcept;

    bool initialized_ = false;
    std::uint32_t generation_ = 0;  // of the manager that gave the context its id
    // Names the record of the thread whose pin keeps the context; 0 when nobody needs to, as for a context's
    // own scope.
    std::uint64_t owner_ = 0;
    detail::ContextState* context_ = nullptr;
    std::uint64_t header_ = 0;
    std::uint64_t contextId_ = 0;
    std::uint64_t ticks_ = 0;
};

}  // namespace Metrics
