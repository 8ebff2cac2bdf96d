#pragma once

#include "metrics/Export.h"

namespace Metrics {

/// Samples of the memory of the process and the machine. Any thread may call these. On Linux what the process
/// may write without others seeing it counts as committed, whatever else it has mapped as reserved; the
/// system keeps these sums, and reading them takes a microsecond or two. On Windows the process's address
/// space is walked: for now and then.
class METRICS_API MetricsMemoryUtils {
  public:
    MetricsMemoryUtils() = delete;

    /// Bytes of the process's address space that are committed.
    static unsigned long long GetMemoryCommitted();

    /// Emits the machine's memory, in MiB, as a scope of its own in the thread's current context. `label`, if
    /// it is not null, is copied and goes along.
    static void EmitGlobalMemoryMetrics(const char* label);

    /// The same for the process's address space, in bytes.
    static void EmitProcessMemoryMetrics(const char* label);
};

}  // namespace Metrics
