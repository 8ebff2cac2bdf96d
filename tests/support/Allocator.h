#pragma once

namespace Metrics::Testing {

/// The program's C++ allocator, replaced. The queue's blocks, which are aligned, are not counted. Counts are
/// of the calling thread.
struct Allocator {
    static thread_local int allocations;
    static thread_local int live;        // those that it has not freed
    static thread_local bool exhausted;  // while set, the calling thread gets nothing
};

}  // namespace Metrics::Testing
