#include "tests/support/Memory.h"

#include <fstream>
#include <string>

namespace Metrics::Testing {

std::int64_t ResidentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, 6, "VmRSS:") == 0) return std::stoll(line.substr(6));
    }
    return 0;
}

}  // namespace Metrics::Testing
