#include "tests/support/Allocator.h"

#include <cstdlib>
#include <new>

using Metrics::Testing::Allocator;

thread_local int Allocator::allocations = 0;
thread_local int Allocator::live = 0;
thread_local bool Allocator::exhausted = false;

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++Allocator::allocations;
    void* memory = Allocator::exhausted ? nullptr : std::malloc(size != 0 ? size : 1);
    if (memory != nullptr) ++Allocator::live;
    return memory;
}

void* operator new(std::size_t size) {
    if (void* memory = operator new(size, std::nothrow)) return memory;
    throw std::bad_alloc();
}

// Only refused, not counted.
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return Allocator::exhausted ? nullptr : operator new(size, alignment);
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr) --Allocator::live;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
