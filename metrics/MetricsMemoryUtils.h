#pragma once

#include "metrics/Export.h"

namespace Metrics {

/// Samples of the memory of the process and the machine. Any thread may call these; they walk the process's
/// address space or ask the system, so they are for now and then. On Linux a mapped region without any access
/// right counts as reserved, every other one as committed.
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
