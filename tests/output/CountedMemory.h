#pragma once

namespace Metrics::Testing {

// What this thread asked of the allocator, and how much of that it has not given back. In the programs that
// link CountedMemory.cpp.
extern thread_local long allocations;
extern thread_local long liveAllocations;

}  // namespace Metrics::Testing
