#include <sys/mman.h>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

void* AllocatePages(std::size_t bytes) noexcept {
    void* pages =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    return pages != MAP_FAILED ? pages : nullptr;
}

void FreePages(void* pages, std::size_t bytes) noexcept {
    munmap(pages, bytes);
}

}  // namespace Metrics::platform
