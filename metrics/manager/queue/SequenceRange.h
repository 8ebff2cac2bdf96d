#pragma once

#include <atomic>
#include <cstdint>

namespace Metrics::detail {

/// The sequence numbers of one thread, of which it draws 1,024 at a time: unique in the process and ascending
/// in the thread, both modulo 2^32.
class SequenceRange {
  public:
    static constexpr std::uint32_t kLength = 1024;

    /// `counter` is an atomic that all threads draw their ranges from, and nothing else.
    template <class Counter>
    std::uint32_t Next(Counter& counter) noexcept {
        if (left_ == 0) [[unlikely]] {
            next_ = counter.fetch_add(kLength, std::memory_order_relaxed);
            left_ = kLength;
        }
        --left_;
        return next_++;
    }

  private:
    std::uint32_t next_ = 0;
    std::uint32_t left_ = 0;
};

}  // namespace Metrics::detail
