#pragma once

#include <atomic>
#include <cstdint>

namespace Metrics::detail {

/// A lock that is only ever tried, so that a thread which is suspended or ended while it holds it stops
/// nobody. For `std::unique_lock` with `std::try_to_lock`.
template <class Traits>
class TryLock {
  public:
    bool try_lock() noexcept {
        return held_.load(std::memory_order_relaxed) == 0 &&
               held_.exchange(1, std::memory_order_acquire) == 0;
    }
    void lock() = delete;
    void unlock() noexcept { held_.store(0, std::memory_order_release); }

  private:
    typename Traits::template Atomic<std::uint32_t> held_{0};
};

}  // namespace Metrics::detail
