// Atomics, locks and memory for the model. Each operation is a step of the scheduler. Memory orders count:
// what one thread wrote before a release is known to who acquires it, and to nobody else.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "tests/manager/model/Scheduler.h"

namespace Metrics::Testing::Model {

inline bool Acquires(std::memory_order order) {
    return order == std::memory_order_acquire || order == std::memory_order_acq_rel ||
           order == std::memory_order_seq_cst;
}
inline bool Releases(std::memory_order order) {
    return order == std::memory_order_release || order == std::memory_order_acq_rel ||
           order == std::memory_order_seq_cst;
}

template <class Value>
class Atomic {
  public:
    Atomic(Value value = {}) : place_(Scheduler::Current().NewPlace()) {  // NOLINT: like std::atomic
        history_.push_back({value, {}});
        View().Set(place_, 1);
    }
    ~Atomic() {
        if (View()[place_] != Newest()) Scheduler::Current().Fail("destroyed under another thread's write");
        alive_ = 0;
    }
    Atomic(const Atomic&) = delete;
    Atomic& operator=(const Atomic&) = delete;

    Value load(std::memory_order order) const {
        Step(false);
        const std::uint32_t oldest = Scheduler::Current().IsWeak() ? View()[place_] : Newest();
        const auto behind = static_cast<std::uint32_t>(Scheduler::Current().Choose(Newest() - oldest + 1));
        const Message& read = history_[oldest + behind - 1];
        View().Set(place_, oldest + behind);
        if (Acquires(order)) View().Join(read.view);
        return read.value;
    }
    void store(Value value, std::memory_order order) {
        Step(true);
        Append(value, order, {});
    }
    Value exchange(Value value, std::memory_order order) {
        return Modify([value](Value) { return value; }, order);
    }
    Value fetch_add(Value value, std::memory_order order) {
        return Modify([value](Value old) { return static_cast<Value>(old + value); }, order);
    }
    Value fetch_sub(Value value, std::memory_order order) {
        return Modify([value](Value old) { return static_cast<Value>(old - value); }, order);
    }
    bool compare_exchange_weak(Value& expected, Value value, std::memory_order success,
                               std::memory_order failure) {
        Step(true);
        if (history_.back().value != expected) {
            expected = history_.back().value;
            View().Set(place_, Newest());
            if (Acquires(failure)) View().Join(history_.back().view);
            return false;
        }
        Replace(value, success);
        return true;
    }

    /// Loads, by acquire, when `predicate` holds for the newest value.
    template <class Predicate>
    void Await(Predicate predicate) {
        const std::function<bool()> holds = [&] { return predicate(history_.back().value); };
        Scheduler::Current().Step({place_, false, &holds});
        View().Set(place_, Newest());
        View().Join(history_.back().view);
    }

  private:
    struct Message {
        Value value;
        Clock view;
    };
    static constexpr std::uint32_t kAlive = 0x600D600D;

    static Clock& View() { return Scheduler::Current().View(); }
    std::uint32_t Newest() const { return static_cast<std::uint32_t>(history_.size()); }

    void Step(bool writes) const {
        Scheduler::Current().Step({place_, writes});
        if (alive_ != kAlive) Scheduler::Current().Fail("used after its end");
        if (View()[place_] == 0) Scheduler::Current().Fail("used by who can't know of it");
    }
    template <class Function>
    Value Modify(Function function, std::memory_order order) {
        Step(true);
        const Value old = history_.back().value;
        Replace(function(old), order);
        return old;
    }
    // Reads the newest value and writes: what was released with it stays so.
    void Replace(Value value, std::memory_order order) {
        const Clock released = history_.back().view;
        if (Acquires(order)) View().Join(released);
        Append(value, order, released);
    }
    void Append(Value value, std::memory_order order, Clock released) {
        View().Set(place_, Newest() + 1);
        if (Releases(order)) released.Join(View());
        history_.push_back({value, std::move(released)});
    }

    const std::size_t place_;
    std::uint32_t alive_ = kAlive;
    std::vector<Message> history_;
};

class Mutex {
  public:
    Mutex() : place_(Scheduler::Current().NewPlace()) {}

    void lock() {
        const std::function<bool()> isFree = [this] { return !held_; };
        Scheduler::Current().Step({place_, true, &isFree});
        held_ = true;
        Scheduler::Current().View().Join(released_);
    }
    void unlock() {
        Scheduler::Current().Step({place_, true});
        held_ = false;
        released_ = Scheduler::Current().View();
    }

  private:
    const std::size_t place_;
    bool held_ = false;
    Clock released_;
};

}  // namespace Metrics::Testing::Model
