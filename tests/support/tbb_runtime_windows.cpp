// Stands in for oneTBB's run-time library in cross-built tests, where there is no Windows build of it: the
// few functions that the templates of concurrent_queue and enumerable_thread_specific call. A delivered
// library is linked to the real one.
#include <oneapi/tbb/cache_aligned_allocator.h>
#include <oneapi/tbb/detail/_exception.h>
#include <oneapi/tbb/tbb_allocator.h>

#include <cstdlib>
#include <new>
#include <stdexcept>

namespace tbb::detail::r1 {

namespace {
constexpr std::align_val_t kCacheLine{128};  // two lines, because processors fetch pairs of them
}

void* cache_aligned_allocate(std::size_t size) {
    return ::operator new(size, kCacheLine);
}
void cache_aligned_deallocate(void* block) {
    ::operator delete(block, kCacheLine);
}
std::size_t cache_line_size() {
    return static_cast<std::size_t>(kCacheLine);
}

void* allocate_memory(std::size_t size) {
    return ::operator new(size);
}
void deallocate_memory(void* block) {
    ::operator delete(block);
}
bool is_tbbmalloc_used() {
    return false;
}

void throw_exception(exception_id id) {
    switch (id) {
        case exception_id::bad_alloc: throw std::bad_alloc();
        case exception_id::out_of_range: throw std::out_of_range("Index out of requested size range");
        case exception_id::reservation_length_error: throw std::length_error("reservation size too large");
        default: std::abort();  // nothing that is used here
    }
}

}  // namespace tbb::detail::r1
