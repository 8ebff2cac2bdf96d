#include "metrics/MetricsMemoryUtils.h"

#include <cstdint>

#include "metrics/Scope.h"
#include "metrics/platform/Platform.h"

namespace Metrics {

namespace {

MetricsValue MiB(std::uint64_t bytes) {
    return static_cast<std::int64_t>(bytes >> 20);
}

MetricsValue Bytes(std::uint64_t bytes) {
    return static_cast<std::int64_t>(bytes);
}

void EmitOrigin(Scope& scope, const char* label) {
    if (label != nullptr) scope.Emit(EightCC("context"), label);
    scope.Emit(FourCC("ts"), MetricsValue::FromCurrentTime());
    scope.Emit(FourCC("pid"), platform::CurrentProcessId());
}

}  // namespace

unsigned long long MetricsMemoryUtils::GetMemoryCommitted() {
    return platform::QueryAddressSpace().committed;
}

void MetricsMemoryUtils::EmitGlobalMemoryMetrics(const char* label) {
    const platform::GlobalMemory memory = platform::QueryGlobalMemory();
    Scope scope(EightCC("globmem"));
    if (!scope.IsOpen()) return;
    EmitOrigin(scope, label);
    scope.Emit(MetricsValue::Ref("PhysicalTotal"), MiB(memory.physicalTotal));
    scope.Emit(MetricsValue::Ref("PhysicalAvailable"), MiB(memory.physicalAvailable));
    scope.Emit(MetricsValue::Ref("PageFileTotal"), MiB(memory.commitLimit));
    scope.Emit(MetricsValue::Ref("PageFileAvailable"), MiB(memory.commitAvailable));
    scope.Emit(MetricsValue::Ref("MemoryLoad"), memory.loadPercent);
}

void MetricsMemoryUtils::EmitProcessMemoryMetrics(const char* label) {
    const platform::AddressSpaceTotals totals = platform::QueryAddressSpace();
    Scope scope(MetricsValue::Ref("ProcessMemory"));
    if (!scope.IsOpen()) return;
    EmitOrigin(scope, label);
    scope.Emit(MetricsValue::Ref("Total"), Bytes(totals.total));
    scope.Emit(MetricsValue::Ref("Committed"), Bytes(totals.committed));
    scope.Emit(MetricsValue::Ref("Reserved"), Bytes(totals.reserved));
}

}  // namespace Metrics
