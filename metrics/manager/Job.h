#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <utility>

namespace Metrics::detail {

/// A task that one thread hands to the worker and waits for. Whoever claims it first runs it, so that it runs
/// exactly once: the worker, or its owner when the worker has left.
class Job {
  public:
    explicit Job(std::function<void()> task) : task_(std::move(task)) {}

    /// True for exactly one caller.
    bool Claim() {
        State expected = State::Pending;
        return state_.compare_exchange_strong(expected, State::Claimed);
    }

    /// Runs a claimed job. It is done afterwards, also when it threw.
    void Run() noexcept {
        try {
            task_();
        } catch (...) {
            failure_ = std::current_exception();
        }
        task_ = nullptr;  // what it holds may hold the core, which may hold the job
        state_ = State::Done;
    }

    bool Done() const { return state_ == State::Done; }

    /// What a job that is done threw, or null.
    const std::exception_ptr& Failure() const { return failure_; }

  private:
    enum class State { Pending, Claimed, Done };

    std::function<void()> task_;
    std::exception_ptr failure_;
    std::atomic<State> state_ = State::Pending;
};

}  // namespace Metrics::detail
