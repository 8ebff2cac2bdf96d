// Runs a few threads of a model one step at a time, in a random order. A step is one operation on an atomic
// or a lock, together with what the thread does by itself until the next one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Fiber.h"

namespace Metrics::Testing::Model {

/// For each place a count.
class Clock {
  public:
    std::uint32_t operator[](std::size_t i) const { return i < counts_.size() ? counts_[i] : 0; }
    void Set(std::size_t i, std::uint32_t count) {
        if (i >= counts_.size()) counts_.resize(i + 8);
        counts_[i] = count;
    }
    void Join(const Clock& other) {
        if (other.counts_.size() > counts_.size()) counts_.resize(other.counts_.size());
        for (std::size_t i = 0; i < other.counts_.size(); ++i)
            if (other.counts_[i] > counts_[i]) counts_[i] = other.counts_[i];
    }

  private:
    std::vector<std::uint32_t> counts_;
};

class Scheduler {
  public:
    /// The one that runs now.
    static Scheduler& Current() { return *current_; }

    /// One run of the model: `begin` adds the threads, `end` is called when all have ended.
    struct Program {
        std::function<void(Scheduler&)> begin;
        std::function<void()> end;
    };

    /// Whether loads may give values that are not the newest, as far as the memory orders allow it.
    explicit Scheduler(bool weak) : weak_(weak) {}

    /// Runs the program `runs` times, or until it fails; `Failure` says what went wrong first.
    void Run(const Program& program, std::uint64_t runs, std::uint64_t seed);

    const std::string& Failure() const { return failure_; }
    std::uint64_t Runs() const { return runs_; }

    // --- For the program ---
    void AddThread(std::function<void()> body);
    void Fail(const std::string& what) {
        if (failure_.empty()) failure_ = what;
    }

    // --- For atomics and locks ---
    std::size_t NewPlace() { return ++places_; }
    /// The calling thread waits until it is its turn, and until `mayGoOn` if there is one.
    void Step(const std::function<bool()>* mayGoOn = nullptr);
    /// A random number below `count`; outside the threads the highest.
    std::size_t Choose(std::size_t count) { return running_ == kMain ? count - 1 : random_() % count; }
    bool IsWeak() const { return weak_; }
    /// For each place the newest change that the calling thread must know of.
    Clock& View() { return running_ == kMain ? mainView_ : threads_[running_].view; }

  private:
    static constexpr std::size_t kMain = SIZE_MAX;

    struct Thread {
        std::unique_ptr<Fiber> fiber;
        const std::function<bool()>* mayGoOn;
        Clock view;
    };

    void RunOnce(const Program& program);
    bool Pick();
    void Resume(std::size_t thread);
    bool MayGoOn(std::size_t thread) const;

    static inline Scheduler* current_ = nullptr;

    const bool weak_;
    std::string failure_;
    std::uint64_t runs_ = 0;

    std::vector<Thread> threads_;
    std::vector<std::unique_ptr<Fiber>> fibers_;  // that no thread uses
    std::size_t running_ = kMain;
    std::size_t next_ = 0;  // picked
    Clock mainView_;
    std::size_t places_ = 0;

    std::mt19937_64 random_;
    std::uint64_t stay_ = 0;  // how often, in 256, the same thread goes on
};

}  // namespace Metrics::Testing::Model
