#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Metrics::detail {

/// A condition that is broadcast whenever anything moves: a change of the state word, the end of a cycle, of
/// a task, of a worker. What waiters look at are atomics, which change before `Notify`.
class Progress {
  public:
    using Clock = std::chrono::steady_clock;

    /// No wait is longer than this between two looks at the condition.
    static constexpr std::chrono::milliseconds kSlice{100};

    void Notify() {
        // The empty section orders this notification after a waiter's look at the old values.
        { const std::lock_guard lock(mutex_); }
        moved_.notify_all();
    }

    /// Waits until `done()` is true, for as long as it takes. `done` runs under an internal lock: it only
    /// reads.
    template <class Done>
    void Wait(Done done) {
        std::unique_lock lock(mutex_);
        while (!done()) moved_.wait_for(lock, kSlice);
    }

    /// The same with a limit; false when it has passed.
    template <class Done>
    bool WaitUntil(Clock::time_point limit, Done done) {
        std::unique_lock lock(mutex_);
        while (!done()) {
            const auto now = Clock::now();
            if (now >= limit) return false;
            moved_.wait_until(lock, std::min(limit, now + Clock::duration(kSlice)));
        }
        return true;
    }

    /// One slice at most, whatever moves. For conditions that are the host's code and must run without a
    /// lock.
    void WaitSlice(Clock::time_point limit) {
        std::unique_lock lock(mutex_);
        moved_.wait_until(lock, std::min(limit, Clock::now() + Clock::duration(kSlice)));
    }

  private:
    std::mutex mutex_;
    std::condition_variable moved_;
};

}  // namespace Metrics::detail
