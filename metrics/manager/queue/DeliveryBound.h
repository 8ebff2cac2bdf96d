#pragma once

#include <atomic>
#include <cstdint>

namespace Metrics::detail {

/// How far the worker has come: everything that was posted before a stamp below the bound was drawn has been
/// delivered. Who waits for its own events draws a stamp first (to read the counter would not do: nothing
/// would order its events before the worker's next read) and waits until the bound is above it.
template <class Traits>
class DeliveryBound {
  public:
    /// By the current worker, when a cycle that read `bound` has been delivered, or had nothing to take while
    /// collecting is off. Under the dispatch lock, so it only rises.
    void Raise(std::uint64_t bound) noexcept { bound_.store(bound, std::memory_order_release); }

    /// Acquires what the callbacks did with the events.
    bool IsAbove(std::uint64_t stamp) const noexcept {
        return bound_.load(std::memory_order_acquire) > stamp;
    }

  private:
    typename Traits::template Atomic<std::uint64_t> bound_{0};
};

}  // namespace Metrics::detail
