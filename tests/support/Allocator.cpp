#include "tests/support/Allocator.h"

#include <cstdlib>
#include <new>

namespace Metrics::Testing {

thread_local int Allocator::allocations = 0;
thread_local bool Allocator::exhausted = false;

}  // namespace Metrics::Testing

using Metrics::Testing::Allocator;

void* operator new(std::size_t size) {
    ++Allocator::allocations;
    if (void* memory = Allocator::exhausted ? nullptr : std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++Allocator::allocations;
    return Allocator::exhausted ? nullptr : std::malloc(size != 0 ? size : 1);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
