#pragma once

#include <atomic>

namespace Metrics::detail {

/// Tells a mark that it interrupts another one of its own thread, in a signal handler or in an allocator's
/// hook, so that it is dropped and does not find record, stacks and slot half changed. Never held around host
/// code, a wait, or the copy of a text.
class BusyFlag {
  public:
    bool IsBusy() const noexcept { return busy_.load(std::memory_order_relaxed); }

    /// False when it is held already. Only the own thread ever looks, so plain moves will do; the fences keep
    /// the compiler from moving what is guarded past them.
    [[nodiscard]] bool TryEnter() noexcept {
        if (busy_.load(std::memory_order_relaxed)) [[unlikely]]
            return false;
        busy_.store(true, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return true;
    }
    void Leave() noexcept {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        busy_.store(false, std::memory_order_relaxed);
    }

  private:
    std::atomic<bool> busy_{false};
};

/// Holds it for a block, if it could be had.
class BusyGuard {
  public:
    explicit BusyGuard(BusyFlag& flag) noexcept : flag_(flag), entered_(flag.TryEnter()) {}
    ~BusyGuard() {
        if (entered_) flag_.Leave();
    }
    BusyGuard(const BusyGuard&) = delete;
    BusyGuard& operator=(const BusyGuard&) = delete;

    explicit operator bool() const noexcept { return entered_; }

  private:
    BusyFlag& flag_;
    const bool entered_;
};

}  // namespace Metrics::detail
