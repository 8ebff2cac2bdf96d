#pragma once

#include <atomic>
#include <cstdint>

#include "metrics/manager/queue/BlockPool.h"
#include "metrics/manager/queue/StampCounter.h"

namespace Metrics::detail {

/// How many bytes wait for the worker in blocks that are full, over all queues. A block counts from when its
/// thread goes on to the next one until the worker has emptied it, so a mark hardly ever touches this, and
/// ten thousand threads with an open block each count nothing.
template <class Traits>
class alignas(64) Backlog {
  public:
    void Add(std::uint64_t bytes) noexcept { bytes_.fetch_add(bytes, std::memory_order_relaxed); }
    void Remove(std::uint64_t bytes) noexcept { bytes_.fetch_sub(bytes, std::memory_order_relaxed); }
    std::uint64_t Bytes() const noexcept { return bytes_.load(std::memory_order_relaxed); }

  private:
    typename Traits::template Counter<std::uint64_t> bytes_{0};
};

/// What all queues of a core use together.
template <class Traits>
struct QueueCommons {
    StampCounter<Traits> stamps;
    BlockPool<Traits> pool;
    Backlog<Traits> backlog;
    std::uint64_t second = 0;  // of the worker's clock; under the dispatch lock
};

}  // namespace Metrics::detail
