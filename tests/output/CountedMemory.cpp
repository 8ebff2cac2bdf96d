#include "tests/output/CountedMemory.h"

#include <cstdlib>
#include <new>

namespace Metrics::Testing {

thread_local long allocations = 0;
thread_local long liveAllocations = 0;

}  // namespace Metrics::Testing

void* operator new(std::size_t size) {
    ++Metrics::Testing::allocations;
    ++Metrics::Testing::liveAllocations;
    if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    if (memory != nullptr) --Metrics::Testing::liveAllocations;
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
