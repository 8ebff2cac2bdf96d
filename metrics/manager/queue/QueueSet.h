#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "metrics/manager/queue/ThreadQueue.h"

namespace Metrics::detail {

/// All queues of a core. A thread links its queue without a lock, before it draws its first stamp; the worker
/// takes in what was linked, and frees what was left and is empty. What it owns changes under a lock that
/// only the worker and `Counts` take.
template <class T, class Traits>
class QueueSet {
  public:
    using Queue = ThreadQueue<T, Traits>;
    using Sums = typename Queue::Sums;

    QueueSet() = default;
    /// Nobody uses any of the queues any more.
    ~QueueSet() {
        DeleteChain(linked_.load(std::memory_order_acquire));
        DeleteChain(late_);
        for (Queue* queue : queues_) Delete(queue);
    }
    QueueSet(const QueueSet&) = delete;
    QueueSet& operator=(const QueueSet&) = delete;

    QueueCommons<Traits>& Commons() noexcept { return commons_; }

    /// For any thread: a queue of its own, or null without memory. It is freed some time after `Leave`.
    Queue* Add(std::uint64_t name) noexcept {
        void* memory = Traits::Allocate(sizeof(Queue));
        if (memory == nullptr) return nullptr;
        auto* queue = new (memory) Queue(commons_, name);
        Queue* next = linked_.load(std::memory_order_relaxed);
        do {
            queue->linked = next;
        } while (!linked_.compare_exchange_weak(next, queue, std::memory_order_release,
                                                std::memory_order_relaxed));
        return queue;
    }

    // --- For the worker, under the dispatch lock ---

    /// Takes in what was linked. False when there is no memory for all of it: then nothing may be delivered,
    /// because what was left out may come first.
    bool TakeIn() noexcept {
        // Relaxed will do: who read the stamps finds every link that was made before those were drawn, and
        // the exchange acquires it.
        if (late_ == nullptr && linked_.load(std::memory_order_relaxed) == nullptr) return true;
        const std::lock_guard lock(mutex_);
        if (!TakeInLate()) return false;
        late_ = linked_.exchange(nullptr, std::memory_order_acquire);
        return TakeInLate();
    }

    /// Looks at each queue and calls `use` with those that have elements; frees those that are at their end.
    template <class Use>
    void Look(Use use) noexcept {
        for (std::size_t i = 0; i < queues_.size();) {
            const auto found = queues_[i]->Look();
            if (found == Queue::Found::End) {
                Free(i);
                continue;
            }
            if (found == Queue::Found::Elements) use(*queues_[i]);
            ++i;
        }
    }

    /// Once a second: memory that rests goes to the system. `second` counts upwards.
    void Rest(std::uint64_t second) noexcept {
        commons_.second = second;
        for (Queue* queue : queues_) queue->Rest();
        commons_.pool.Trim();
    }

    std::size_t Size() const noexcept { return queues_.size(); }

    // --- For any thread ---

    /// The sums over all queues there are and were.
    Sums Counts() const {
        const std::lock_guard lock(mutex_);
        Sums sums = gone_;
        for (const Queue* queue : queues_) AddTo(sums, *queue);
        // What is linked stays there while the lock is held.
        AddChainTo(sums, linked_.load(std::memory_order_acquire));
        AddChainTo(sums, late_);
        return sums;
    }

  private:
    static void AddTo(Sums& sums, const Queue& queue) noexcept {
        const Sums counts = queue.Counts();
        sums.taken += counts.taken;
        sums.published += counts.published;
    }

    static void AddChainTo(Sums& sums, const Queue* chain) noexcept {
        for (; chain != nullptr; chain = chain->linked) AddTo(sums, *chain);
    }

    bool TakeInLate() noexcept {
        try {
            for (; late_ != nullptr; late_ = late_->linked) queues_.push_back(late_);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

    void Free(std::size_t index) noexcept {
        const std::lock_guard lock(mutex_);
        Queue* queue = std::exchange(queues_[index], queues_.back());
        queues_.pop_back();
        AddTo(gone_, *queue);
        Delete(queue);
    }
    static void Delete(Queue* queue) noexcept {
        queue->~Queue();
        Traits::Free(queue, sizeof(Queue));
    }

    static void DeleteChain(Queue* chain) noexcept {
        while (chain != nullptr) Delete(std::exchange(chain, chain->linked));
    }

    QueueCommons<Traits> commons_;
    alignas(64) typename Traits::template Atomic<Queue*> linked_{nullptr};

    mutable typename Traits::Mutex mutex_;
    // Changed by the worker under the lock, read by others under the lock.
    std::vector<Queue*> queues_;
    Queue* late_ = nullptr;  // a chain of those that found no memory in `queues_`
    Sums gone_;              // of those that were freed
};

}  // namespace Metrics::detail
