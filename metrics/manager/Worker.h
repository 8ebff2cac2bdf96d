#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "metrics/MetricsEvent.h"
#include "metrics/platform/Platform.h"

namespace Metrics::detail {

class Core;

/// One worker thread of a core: it takes events from the queue and delivers them, cycle after cycle.
///
/// A worker whose callback takes too long is given up by `Shutdown`: it is no longer the core's current one,
/// and when the callback returns it touches nothing and leaves.
class Worker {
  public:
    explicit Worker(std::shared_ptr<Core> core);

    /// Starts and detaches the thread, which keeps `worker` alive. Throws `std::system_error`.
    static void Launch(std::shared_ptr<Worker> worker);

    /// The worker whose thread calls this, or null.
    static Worker* OfThisThread();

    Core& Owner() const { return *core_; }

    /// Tells it to run one more whole cycle and leave.
    void Stop() { stop_ = true; }

    /// Set when it became the current worker, and when it is about to end. One that never entered left.
    bool HasEntered() const { return entered_; }
    /// Also true when the thread is gone without a word, as the system leaves it when a process exits.
    bool HasLeft() const { return left_ || IsDead(); }
    /// True for a thread that ended without leaving; what it held is locked for ever.
    bool IsDead() const { return started_ && !left_ && !thread_.IsAlive(); }

    /// Whether its thread is still there, be it on its way out.
    bool IsThreadAlive() const { return started_ && thread_.IsAlive(); }

    void GiveUp() { givenUp_ = true; }
    bool IsGivenUp() const { return givenUp_; }

    /// What the thread-init function threw; for who waited until the worker had left.
    std::exception_ptr TakeInitFailure() { return std::exchange(initFailure_, nullptr); }

    // Cycle n has begun once `Begun() >= n` and has been delivered once `Delivered() >= n`. A cycle counts as
    // begun before it looks into the queue.
    std::uint64_t Begun() const { return begun_; }
    std::uint64_t Delivered() const { return delivered_; }

    /// The token of the callback that this worker is in, or 0. For the worker's own thread.
    std::uint64_t CallbackToken() const { return callbackToken_; }

    /// Whether another batch of the cycle follows the one being delivered. For the worker's own thread.
    bool MoreFollows() const { return ahead_ > 0; }

  private:
    void Run();
    void Enter();
    void Leave();
    void Loop();
    bool Cycle();
    void NotePace();
    bool DeliverCycle(std::unique_lock<platform::RecursiveMutex>& lock, std::exception_ptr& failure);
    void TakeBatch();
    void AppendSynthetic();
    bool Deliver(std::unique_lock<platform::RecursiveMutex>& lock, std::exception_ptr& failure);
    int NextWait() const;

    const std::shared_ptr<Core> core_;
    platform::ThreadHandle thread_;  // set before `started_`
    std::atomic<bool> started_{false};
    std::atomic<bool> stop_{false};
    std::atomic<bool> entered_{false};
    std::atomic<bool> left_{false};
    std::atomic<bool> givenUp_{false};
    std::atomic<std::uint64_t> begun_{0};
    std::atomic<std::uint64_t> delivered_{0};
    std::exception_ptr initFailure_;

    // Used by the worker's thread only.
    std::vector<MetricsEvent> batch_;
    std::size_t taken_ = 0;  // events of the cycle that came from the queue
    std::size_t ahead_ = 0;  // those that are still there
    std::optional<std::uint64_t> lastMask_;
    std::optional<std::uint32_t> lastState_;
    std::uint32_t state_ = 0;  // of the manager when the cycle began
    std::uint64_t callbackToken_ = 0;
    std::chrono::steady_clock::time_point start_;      // of the cycle
    std::chrono::steady_clock::duration interval_{0};  // since the start of the one before
};

}  // namespace Metrics::detail
