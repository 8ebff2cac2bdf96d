#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>

#include "metrics/platform/Platform.h"

namespace Metrics::detail {

/// The constants, the atomics and the memory of the threads' queues: a parameter of all their classes, so
/// that tests run them with tiny blocks, with a scheduler behind each atomic step, and with allocations that
/// fail.
struct QueueTraits {
    template <class Value>
    using Atomic = std::atomic<Value>;
    /// For figures that are read to decide how much, and put nothing in order.
    template <class Value>
    using Counter = std::atomic<Value>;
    using Mutex = std::mutex;

    /// Slots of a queue's first block, which lies in the queue, of its second, and of all others. With its
    /// header the second is 4 KiB and the others are 32 KiB. Most threads that live for a moment need the
    /// first one only.
    static constexpr std::size_t kFirstSlots = 16;
    static constexpr std::size_t kSecondSlots = 63;
    static constexpr std::size_t kSlots = 511;

    /// Empty large blocks that are kept, wherever they are: 16 MiB.
    static constexpr std::size_t kMostIdle = 512;
    /// Blocks that the pool has ready at the least, and what it is refilled with at a time at the most.
    static constexpr std::size_t kFewestReady = 4;
    static constexpr std::size_t kMostRefilled = 64;

    /// The largest step from stamp to stamp that a slot can hold; a larger one takes a slot of its own.
    static constexpr std::uint64_t kLargestStep = 0xFFFF'FFFE;

    /// Aligned to a cache line; null without memory. What has the size of large blocks comes from the system
    /// and goes back to it, with all its pages touched.
    static void* Allocate(std::size_t bytes) noexcept {
        return bytes >= kPages ? platform::AllocatePages(bytes) :
                               operator new (bytes, std::align_val_t{64}, std::nothrow);
    }
    static void Free(void* memory, std::size_t bytes) noexcept {
        if (bytes >= kPages) {
            platform::FreePages(memory, bytes);
        } else {
            operator delete (memory, std::align_val_t{64});
        }
    }

  private:
    static constexpr std::size_t kPages = std::size_t{32} << 10;
};

}  // namespace Metrics::detail
