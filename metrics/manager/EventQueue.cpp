#include "metrics/manager/EventQueue.h"

#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__)
#include <tbb/cache_aligned_allocator.h>
#endif

namespace Metrics::detail {

constinit thread_local void* sparePage = nullptr;

#if defined(__SANITIZE_ADDRESS__)

// The queue itself lies in oneTBB's memory, where the leak checker doesn't look: pages from elsewhere that
// only the queue refers to would count as lost.
namespace {

struct Page {
    std::byte bytes[kQueuePage];
};

}  // namespace

void* NewQueuePage() {
    return tbb::cache_aligned_allocator<Page>().allocate(1);
}

void FreeQueuePage(void* page) noexcept {
    tbb::cache_aligned_allocator<Page>().deallocate(static_cast<Page*>(page), 1);
}

#else

// Not from oneTBB's allocator, whose locks may be held for ever in the child of a fork. This one is as fast.
void* NewQueuePage() {
    if (void* page = std::malloc(kQueuePage)) return page;
    throw std::bad_alloc();
}

void FreeQueuePage(void* page) noexcept {
    std::free(page);
}

#endif

}  // namespace Metrics::detail
