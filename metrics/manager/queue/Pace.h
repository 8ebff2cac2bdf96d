#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Metrics::detail {

/// What the worker takes in a second while it is busy: for the worker to note, after each cycle, and for any
/// thread to read.
class Pace {
  public:
    /// A cycle of fewer bytes tells nothing.
    static constexpr std::uint64_t kTellingCycle = std::uint64_t{64} << 10;

    void Note(std::uint64_t bytes, std::chrono::duration<double> busy) noexcept {
        if (bytes < kTellingCycle) return;
        constexpr double kShortest = 1e-6;
        const double pace =
            static_cast<double>(bytes) / (busy.count() > kShortest ? busy.count() : kShortest);
        bytesPerSecond_.store(static_cast<std::uint64_t>(pace), std::memory_order_relaxed);
    }

    /// 0 when it isn't known yet.
    std::uint64_t BytesPerSecond() const noexcept { return bytesPerSecond_.load(std::memory_order_relaxed); }

  private:
    std::atomic<std::uint64_t> bytesPerSecond_{0};
};

}  // namespace Metrics::detail
