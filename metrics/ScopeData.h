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

    bool IsInitialized() const { return stamp_.header != 0; }
    /// The event header; see MetricsEvent.
    std::uint64_t Header() const { return stamp_.header; }
    /// 0 when there was no current context.
    std::uint64_t ContextId() const { return stamp_.contextId; }
    /// The time it was initialized; Int64 0 when there was no current context.
    MetricsValue Timestamp() const {
        return stamp_.contextId != 0 ? MetricsValue(MetricsDateTime(stamp_.ticks)) : MetricsValue();
    }

  private:
    friend class Scope;

    // What is taken at initialization.
    struct Stamp {
        std::uint64_t contextId = 0;
        std::uint64_t ticks = 0;
        std::uint64_t header = 0;
        std::uint32_t generation = 0;  // of the manager that gave the context its id
        detail::ContextState* context = nullptr;

        static Stamp Take(MetricsEventType type, const MetricsThreadContext& record,
                          detail::ContextState* context);
    };

    // For the record named `owner` that pins the context; 0 when nobody needs to, as for a context's own
    // scope.
    ScopeData(const Stamp& stamp, std::uint64_t owner) : stamp_(stamp), owner_(owner) {}
    void Unpin() noexcept;

    Stamp stamp_;
    std::uint64_t owner_ = 0;
};

}  // namespace Metrics
