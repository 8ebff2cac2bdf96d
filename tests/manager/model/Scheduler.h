// Runs a few threads of a model one step at a time, in an order that is chosen for each step: all orders that
// can make a difference, or random ones. A step is one operation on an atomic or a lock, together with what
// the thread does by itself until the next one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Fiber.h"

namespace Metrics::Testing::Model {

/// What a thread is about to do. Two of them may be swapped unless they are at one place and one writes.
struct Operation {
    std::size_t place = 0;  // 0 is no place at all
    bool writes = false;
    const std::function<bool()>* isEnabled = nullptr;  // null: always

    bool ConflictsWith(const Operation& other) const {
        return place != 0 && place == other.place && (writes || other.writes);
    }
};

/// For each place or thread a count.
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
    static constexpr std::size_t kMost = 8;  // threads

    /// The one that runs now.
    static Scheduler& Current() { return *current_; }

    /// One run of the model: `begin` adds the threads, `end` is called when all have ended.
    struct Program {
        std::function<void(Scheduler&)> begin;
        std::function<void()> end;
    };

    /// Whether loads may give values that are not the newest, as far as the memory orders allow it.
    explicit Scheduler(bool weak = false) : weak_(weak) {}
    ~Scheduler();

    /// Runs the program in every order that can make a difference, at most `most` times, or until it fails.
    /// True when no order is left. `Failure` says what went wrong first.
    bool RunAll(const Program& program, std::uint64_t most);
    void RunRandom(const Program& program, std::uint64_t runs, std::uint64_t seed);

    const std::string& Failure() const { return failure_; }
    std::uint64_t Runs() const { return runs_; }

    // --- For the program ---
    void AddThread(std::function<void()> body);
    void Fail(const std::string& what) {
        if (failure_.empty()) failure_ = what;
    }

    // --- For atomics and locks ---
    std::size_t NewPlace() { return ++places_; }
    /// The calling thread waits until it is its turn to do this.
    void Step(const Operation& operation);
    /// A number below `count`, at the moment's step.
    std::size_t Choose(std::size_t count);
    bool IsWeak() const { return weak_; }
    /// For each place the newest change that the calling thread must know of.
    Clock& View() { return running_ == kMain ? mainView_ : threads_[running_].view; }

  private:
    static constexpr std::size_t kMain = SIZE_MAX;

    struct Thread {
        std::unique_ptr<Fiber> fiber;
        Operation pending;
        Clock view;
        Clock happened;  // for each thread its last step that must come before
    };
    struct Choice {
        std::size_t chosen;
        std::size_t count;
    };
    // A step on the way, with what was and is to be tried instead of it. Sets of threads are bits.
    struct Node {
        std::size_t thread;
        std::uint32_t enabled;
        std::uint32_t sleeping;  // to begin with one of these brings nothing new
        std::uint32_t wanted;
        std::uint32_t done = 0;
        std::vector<Operation> pending;
        std::vector<Choice> choices;
        Clock clock;
    };
    // Of a place: when it was last written, and read since.
    struct Access {
        Clock written;
        Clock read;
    };

    void Run(const Program& program, const std::function<bool(std::uint32_t enabled)>& pick);
    bool PickInOrder(std::uint32_t enabled);
    bool PickRandomly(std::uint32_t enabled);
    void Resume(std::size_t thread);
    std::uint32_t Enabled() const;
    void WantReversals();
    void WantReversal(std::size_t thread);
    void NoteHappened(Node& node);
    std::uint32_t SleepingAfter(const Node& node) const;
    bool NextOrder();

    static Scheduler* current_;

    const bool weak_;
    std::string failure_;
    std::uint64_t runs_ = 0;

    std::vector<Thread> threads_;
    std::vector<std::unique_ptr<Fiber>> fibers_;  // that no thread uses
    std::size_t running_ = kMain;
    std::size_t next_ = 0;  // picked
    Clock mainView_;
    std::size_t places_ = 0;

    std::vector<Node> path_;
    std::size_t depth_ = 0;
    std::size_t choice_ = 0;  // of the step
    bool inOrder_ = false;
    bool redundant_ = false;  // the run only comes to its end
    std::vector<Access> accesses_;

    std::mt19937_64 random_;
    std::uint32_t stay_ = 0;  // how often, in 256, the same thread goes on
};

}  // namespace Metrics::Testing::Model
