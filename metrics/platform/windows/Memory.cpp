#include <windows.h>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

AddressSpaceTotals QueryAddressSpace() {
    AddressSpaceTotals totals;
    const char* address = nullptr;
    MEMORY_BASIC_INFORMATION region;
    while (VirtualQuery(address, &region, sizeof(region)) != 0) {
        if (region.State == MEM_COMMIT) totals.committed += region.RegionSize;
        if (region.State == MEM_RESERVE) totals.reserved += region.RegionSize;
        if (region.State == MEM_FREE) totals.free += region.RegionSize;
        address += region.RegionSize;
    }
    totals.total = totals.committed + totals.reserved + totals.free;
    return totals;
}

GlobalMemory QueryGlobalMemory() {
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof(status);
    GlobalMemoryStatusEx(&status);
    return {.physicalTotal = status.ullTotalPhys,
            .physicalAvailable = status.ullAvailPhys,
            .commitLimit = status.ullTotalPageFile,
            .commitAvailable = status.ullAvailPageFile,
            .loadPercent = status.dwMemoryLoad};
}

}  // namespace Metrics::platform
