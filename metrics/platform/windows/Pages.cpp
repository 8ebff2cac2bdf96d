#include <windows.h>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

void* AllocatePages(std::size_t bytes) noexcept {
    constexpr std::size_t kPage = 4096;
    auto* pages =
        static_cast<volatile char*>(VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    if (pages == nullptr) return nullptr;
    for (std::size_t i = 0; i < bytes; i += kPage) pages[i] = 0;
    return const_cast<char*>(pages);
}

void FreePages(void* pages, std::size_t) noexcept {
    VirtualFree(pages, 0, MEM_RELEASE);
}

}  // namespace Metrics::platform
