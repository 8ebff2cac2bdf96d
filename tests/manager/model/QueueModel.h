// The threads' queues and the worker's cycle, the real code, with tiny blocks on the model's atomics and
// memory; and what must hold whatever the order of steps.
#pragma once

#include <deque>
#include <set>
#include <string>
#include <vector>

#include "metrics/manager/queue/Cycle.h"
#include "metrics/manager/queue/DeliveryBound.h"
#include "metrics/manager/queue/Stamping.h"
#include "tests/manager/model/Heap.h"
#include "tests/manager/model/Memory.h"

namespace Metrics::Testing::Model {

struct TinyTraits {
    template <class Value>
    using Atomic = Model::Atomic<Value>;
    template <class Value>
    using Counter = std::atomic<Value>;
    using Mutex = Model::Mutex;
    static constexpr std::size_t kFirstSlots = 2;
    static constexpr std::size_t kSecondSlots = 3;
    static constexpr std::size_t kSlots = 4;
    static constexpr std::size_t kMostIdle = 2;
    static constexpr std::size_t kFewestReady = 1;
    static constexpr std::size_t kMostRefilled = 2;
    static constexpr std::uint64_t kLargestStep = 3;
    static void* Allocate(std::size_t bytes) noexcept { return Heap::Current().Allocate(bytes); }
    static void Free(void* memory, std::size_t) noexcept { Heap::Current().Free(memory); }
};

/// Its number, and a check that who reads it may do so.
class Event {
  public:
    explicit Event(int number) noexcept : number_(number) { Heap::Current().Touch(this); }
    Event(Event&& other) noexcept : number_(other.number_) {
        Heap::Current().Touch(&other);
        Heap::Current().Touch(this);
    }
    int Number() const { return number_; }

  private:
    int number_;
};

using Queues = detail::QueueSet<Event, TinyTraits>;
using Queue = Queues::Queue;

struct Context {
    explicit Context(int parentContext = -1) : parent(parentContext) {}
    Model::Atomic<std::uint64_t> last{0};
    Model::Atomic<int> turn{0};  // by which the host makes an order
    int parent;
    int closing = -1;         // its last event
    std::vector<int> events;  // in the order in which the host let threads mark them
};

/// Everything of one run.
class System {
  public:
    Heap heap;
    Queues queues;
    Mutex dispatch;
    int currentWorker = 1;
    std::deque<Context> contexts;
    detail::DeliveryBound<TinyTraits> bound;

    /// A worker's life: some cycles, batches of two events, until it is given up.
    void RunWorker(int worker, int cycles, std::uint64_t firstSecond = 0);
    /// It is replaced by another one.
    void GiveUpWorker();
    /// The figures at any moment.
    void CheckCounts(Queues::Sums& before);
    /// After all threads: what is left is delivered, and all must be right.
    void CheckAtEnd();

  private:
    friend class Producer;

    struct Posted {
        std::uint64_t thread;
        int number;  // in its thread
    };
    bool Cycle(int worker, detail::Cycle<Event, TinyTraits>& cycle);
    void Log(std::vector<Event>& batch);
    void CheckThreads();
    void CheckContexts();
    static void Require(bool holds, const std::string& what) {
        if (!holds) Scheduler::Current().Fail(what);
    }

    std::vector<Posted> posted_;
    std::vector<int> delivered_;
    std::vector<std::size_t> placeOf_;  // of an event in `delivered_`
    int left_ = 0;
    int threads_ = 0;
};

/// One marking thread.
class Producer {
  public:
    /// Like a thread's first mark.
    Producer(System& system, std::uint64_t name) : system_(system), name_(name) {
        queue_ = system.queues.Add(name);
        if (queue_ != nullptr) ++system.threads_;
    }

    /// The host's order of those who use a context.
    void Await(int context, int turn) {
        system_.contexts[Index(context)].turn.Await([turn](int now) { return now >= turn; });
    }
    void Pass(int context) { system_.contexts[Index(context)].turn.fetch_add(1, std::memory_order_acq_rel); }

    void Mark(int context) {
        if (queue_ == nullptr) return;
        detail::StampForContext(*queue_, system_.contexts[Index(context)].last);
        Post(context);
    }
    void Open(int context, int tick) {
        if (queue_ == nullptr) return;
        detail::StampForOpening(*queue_, system_.contexts[Index(context)].last, tick_, tick);
        Post(context);
    }
    void Create(int context) {
        if (queue_ == nullptr) return;
        detail::StampForLife(*queue_, system_.contexts[Index(context)].last);
        Post(context);
    }
    void Close(int context) {
        if (queue_ == nullptr) return;
        detail::StampForLife(*queue_, system_.contexts[Index(context)].last);
        if (Post(context)) system_.contexts[Index(context)].closing = Last();
    }
    /// A group of events that come whole or not at all.
    void MarkTogether(int context, std::size_t count) {
        if (queue_ == nullptr) return;
        detail::StampForContext(*queue_, system_.contexts[Index(context)].last);
        if (!queue_->Reserve(count)) return;
        for (std::size_t i = 0; i < count; ++i)
            if (!Post(context)) Scheduler::Current().Fail("reserved in vain");
    }
    /// If the bound says that all is delivered it must be.
    void CheckFinished();
    void Leave() {
        if (queue_ == nullptr) return;
        queue_->Leave();
        ++system_.left_;
    }

  private:
    static std::size_t Index(int context) { return static_cast<std::size_t>(context); }
    int Last() const { return static_cast<int>(system_.posted_.size()) - 1; }

    // The number is known to all before the event is published, and kept in the same step in which it is.
    bool Post(int context) {
        auto& posted = system_.posted_;
        int event = -1;
        const bool done = queue_->TryBuild([&](void* place) noexcept {
            event = static_cast<int>(posted.size());
            posted.push_back({name_, count_});
            new (place) Event(event);
            if (context >= 0) system_.contexts[Index(context)].events.push_back(event);
            mine_.push_back(event);
        });
        if (done) ++count_;
        return done;
    }

    System& system_;
    const std::uint64_t name_;
    Queue* queue_;
    int tick_ = -1;
    int count_ = 0;
    std::vector<int> mine_;
};

}  // namespace Metrics::Testing::Model
