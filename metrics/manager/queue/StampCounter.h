#pragma once

#include <atomic>
#include <cstdint>

namespace Metrics::detail {

/// Where the threads draw their stamps, which put the events of different queues in order.
///
/// It is never stored to, so all draws are one release sequence: who reads a value sees, by acquire, all that
/// was done before each of the draws that led to it.
template <class Traits>
class alignas(64) StampCounter {
  public:
    /// A stamp that nobody else has.
    std::uint64_t Draw() noexcept { return next_.fetch_add(1, std::memory_order_acq_rel); }

    /// Every stamp below it has been drawn, and what was done before the draw is seen.
    std::uint64_t Read() const noexcept { return next_.load(std::memory_order_acquire); }

  private:
    typename Traits::template Atomic<std::uint64_t> next_{1};
};

}  // namespace Metrics::detail
