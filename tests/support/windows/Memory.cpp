#include "tests/support/Memory.h"

#include <windows.h>
// After windows.h.
#include <psapi.h>

namespace Metrics::Testing {

std::int64_t ResidentKiB() {
    PROCESS_MEMORY_COUNTERS counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    return static_cast<std::int64_t>(counters.WorkingSetSize / 1024);
}

}  // namespace Metrics::Testing
