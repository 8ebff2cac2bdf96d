#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "metrics/manager/queue/QueueSet.h"

namespace Metrics::detail {

/// One worker's cycles over the queues. All of it is called under the dispatch lock, by the worker that is
/// current; between two calls the lock may be given up. Where each queue stands lies in the queue, so a
/// worker that is given up just calls nothing any more, and the next one begins a cycle of its own.
///
/// Why the order holds. B marks after A's event e, ordered by the host, and draws a stamp s after e was
/// published. If s is below the bound, the read of the bound is in the release sequence of that draw, so the
/// look at A's queue, which was linked before e, sees e; and e's stamp is smaller. Otherwise B's elements
/// wait. That needs the steps of `Begin` in just this order.
template <class T, class Traits>
class Cycle {
  public:
    using Queue = ThreadQueue<T, Traits>;

    explicit Cycle(QueueSet<T, Traits>& queues) noexcept : queues_(queues) {}

    /// Reads the stamps, takes in what was linked, looks once at each queue. False when there was no memory
    /// for that; then there is nothing to take.
    bool Begin() noexcept {
        heads_.clear();
        bound_ = queues_.Commons().stamps.Read();
        if (!queues_.TakeIn() || !MakeRoom()) return false;
        queues_.Look([this](Queue& queue) { PushUnlessLate(queue); });
        std::make_heap(heads_.begin(), heads_.end(), Later);
        return true;
    }

    /// What was posted before a stamp below this was drawn will have been taken when nothing more follows.
    std::uint64_t Bound() const noexcept { return bound_; }

    /// Whether there is more to take.
    bool MoreFollows() const noexcept { return !heads_.empty(); }

    /// Moves the next elements, at most `most`, to the end of `batch`, which has capacity for them. They come
    /// by ascending stamp; those under one stamp are of one queue and keep its order.
    void TakeBatch(std::vector<T>& batch, std::size_t most) noexcept {
        while (most > 0 && !heads_.empty()) {
            std::pop_heap(heads_.begin(), heads_.end(), Later);
            Queue& queue = *heads_.back().queue;
            heads_.pop_back();
            most -= queue.Take(batch, heads_.empty() ? bound_ - 1 : heads_.front().stamp, most);
            if (PushUnlessLate(queue)) std::push_heap(heads_.begin(), heads_.end(), Later);
        }
    }

  private:
    struct Head {
        std::uint64_t stamp;  // of the queue's next element
        Queue* queue;
    };
    static bool Later(const Head& a, const Head& b) noexcept { return a.stamp > b.stamp; }

    bool MakeRoom() noexcept {
        try {
            heads_.reserve(queues_.Size());
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

    // Only what stands below the bound.
    bool PushUnlessLate(Queue& queue) noexcept {
        if (!queue.HasSeen()) return false;
        const std::uint64_t stamp = queue.NextStamp();
        if (stamp >= bound_) return false;
        heads_.push_back({stamp, &queue});
        return true;
    }

    QueueSet<T, Traits>& queues_;
    std::vector<Head> heads_;  // a heap, the lowest stamp on top
    std::uint64_t bound_ = 0;
};

}  // namespace Metrics::detail
