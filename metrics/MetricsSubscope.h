#pragma once

#include <cstdint>

#include "metrics/Export.h"
#include "metrics/Scope.h"

namespace Metrics {

/// A measurement attached to an open scope: it takes its starting point when it is made and emits its results
/// when it is deleted, as `ScopeValue` events inside a small scope of its own. The scope that owns the
/// chain's head deletes it when it closes; each subscope owns and deletes the next. Used on the scope's
/// thread.
class METRICS_API MetricsSubscope {
  public:
    virtual ~MetricsSubscope();
    MetricsSubscope(const MetricsSubscope&) = delete;
    MetricsSubscope& operator=(const MetricsSubscope&) = delete;

  protected:
    /// `scope` outlives this object; `next` may be null.
    MetricsSubscope(const Scope& scope, MetricsSubscope* next) : scope_(scope), next_(next) {}

    const Scope& Owner() const { return scope_; }

  private:
    const Scope& scope_;
    MetricsSubscope* next_;
};

/// Tells where the scope was opened, at once.
class METRICS_API LocationSubscope : public MetricsSubscope {
  public:
    /// `text` is borrowed; without one nothing is emitted.
    LocationSubscope(const Scope& scope, MetricsSubscope* next, const char* text, int line);
};

/// Tells by how many bytes the process's committed memory grew.
class METRICS_API MemoryMonitorSubscope : public MetricsSubscope {
  public:
    MemoryMonitorSubscope(const Scope& scope, MetricsSubscope* next);
    ~MemoryMonitorSubscope() override;

  private:
    unsigned long long startCommitted_;
};

/// Tells how long the scope was open, and how much of that the thread was on a processor.
class METRICS_API ElapsedTimeSubscope : public MetricsSubscope {
  public:
    ElapsedTimeSubscope(const Scope& scope, MetricsSubscope* next);
    ~ElapsedTimeSubscope() override;

  private:
    friend class Scope;

    double startSeconds_;
    MetricsValue enter_;
    std::uint64_t entry_ = 0;  // in the context's time stack; 0 for the one on top of it
};

}  // namespace Metrics
