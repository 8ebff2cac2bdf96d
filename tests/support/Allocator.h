#pragma once

namespace Metrics::Testing {

/// The program's C++ allocator, replaced. The queue's pages don't come from there.
struct Allocator {
    static thread_local int allocations;  // of the calling thread so far
    static thread_local bool exhausted;   // while set, the calling thread gets nothing
};

}  // namespace Metrics::Testing
