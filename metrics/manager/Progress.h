#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>

#include "metrics/platform/Platform.h"

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
        { const std::lock_guard lock(monitor_); }
        monitor_.NotifyAll();
    }

    /// Waits until `done()` is true, for as long as it takes. `done` runs under an internal lock: it only
    /// reads.
    template <class Done>
    void Wait(Done done) {
        const std::lock_guard lock(monitor_);
        while (!done()) monitor_.WaitFor(Slice(kSlice));
    }

    /// The same with a limit; false when it has passed.
    template <class Done>
    bool WaitUntil(Clock::time_point limit, Done done) {
        const std::lock_guard lock(monitor_);
        while (!done()) {
            const auto left = limit - Clock::now();
            if (left <= Clock::duration::zero()) return false;
            monitor_.WaitFor(Slice(left));
        }
        return true;
    }

    /// One slice at most, whatever moves. For conditions that are the host's code and must run without a
    /// lock.
    void WaitSlice(Clock::time_point limit) {
        const std::lock_guard lock(monitor_);
        monitor_.WaitFor(Slice(limit - Clock::now()));
    }

  private:
    static int Slice(Clock::duration left) {
        const auto whole = std::chrono::ceil<std::chrono::milliseconds>(left);
        return static_cast<int>(std::clamp(whole, std::chrono::milliseconds(0), kSlice).count());
    }

    platform::Monitor monitor_;
};

}  // namespace Metrics::detail
