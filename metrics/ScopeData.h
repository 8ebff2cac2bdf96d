#pragma once

#include <cstdint>

#include "metrics/Export.h"
#include "metrics/MetricsEvent.h"

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

    bool IsInitialized() const { return Header() != 0; }
    /// The event header; see MetricsEvent.
    std::uint64_t Header() const { return event_.header.AsUInt64(); }
    /// 0 when there was no current context.
    std::uint64_t ContextId() const { return event_.contextId.AsUInt64(); }
    /// The time it was initialized; Int64 0 when there was no current context.
    const MetricsValue& Timestamp() const { return event_.timestamp; }

  private:
    friend class Scope;

    // The opening of a scope about `about` in `context`, which `record` pins if `pinned`; otherwise nobody
    // needs to, as for a context's own scope.
    ScopeData(const MetricsValue& about, const MetricsThreadContext& record, detail::ContextState& context,
              bool pinned);
    // An event of now in a context with an id.
    static MetricsEvent Take(MetricsEventType type, const MetricsValue& about,
                             const MetricsThreadContext& record, const detail::ContextState& context);
    void Unpin() noexcept;

    MetricsEvent event_;
    detail::ContextState* context_ = nullptr;
    std::uint64_t owner_ = 0;
    std::uint32_t generation_ = 0;  // of the manager that gave the context its id
};

}  // namespace Metrics
