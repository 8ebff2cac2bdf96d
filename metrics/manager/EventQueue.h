#pragma once

#include <tbb/concurrent_queue.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>
#include <vector>

#include "metrics/MetricsEvent.h"

namespace Metrics::detail {

/// Enough for what the queue calls a page: a header and a few events.
inline constexpr std::size_t kQueuePage = 256;

/// The page that the calling thread has at hand for its next push, or null. Freed when the thread ends.
extern constinit thread_local void* sparePage;

/// Throws `std::bad_alloc`.
void* NewQueuePage();
void FreeQueuePage(void* page) noexcept;

/// Gives the queue its pages. A push that fails to get one in its midst leaves the queue unusable, and the
/// next pop crashes: so the pushing thread gets the page beforehand, and here it is only handed over.
template <class T>
class QueuePages {
  public:
    using value_type = T;

    QueuePages() = default;
    template <class U>
    QueuePages(const QueuePages<U>&) {}

    T* allocate(std::size_t count) {
        static_assert(sizeof(T) <= kQueuePage, "raise kQueuePage");
        if (count != 1) throw std::bad_alloc();
        void* page = std::exchange(sparePage, nullptr);
        return static_cast<T*>(page != nullptr ? page : NewQueuePage());
    }
    void deallocate(T* page, std::size_t) noexcept { FreeQueuePage(page); }

    template <class U>
    bool operator==(const QueuePages<U>&) const {
        return true;
    }
};

/// The lock-free queue between the marking threads and the worker: many producers, one consumer at a time.
/// Events of one thread keep their order.
class EventQueue {
  public:
    /// Builds an event in place at the end. Throws `std::bad_alloc`; the queue is then as before.
    template <class... Args>
    void Emplace(Args&&... args) {
        if (sparePage == nullptr) sparePage = NewQueuePage();
        queue_.emplace(std::forward<Args>(args)...);
    }

    /// How many events are there; pushes and pops in flight may or may not be counted.
    std::size_t Size() const {
        const auto size = queue_.unsafe_size();
        return size > 0 ? static_cast<std::size_t>(size) : 0;
    }

    /// Room that a drained batch has left, for events that the worker appends to it.
    static constexpr std::size_t kSpare = 2;

    /// Moves what is in the queue now, and nothing that comes later, to the empty `batch`, whose capacity is
    /// more than `kSpare`. Loses nothing when memory is short: what doesn't fit stays in the queue.
    void Drain(std::vector<MetricsEvent>& batch) {
        std::size_t count = Size();
        try {
            batch.reserve(count + kSpare);
        } catch (const std::bad_alloc&) {
            count = batch.capacity() - kSpare;
        }
        for (; count > 0; --count) {
            if (!queue_.try_pop(batch.emplace_back())) {
                batch.pop_back();
                return;
            }
        }
    }

  private:
    using Queue = tbb::concurrent_queue<MetricsEvent, QueuePages<MetricsEvent>>;

#if defined(__SANITIZE_THREAD__)
    // What oneTBB's allocator gives out again is a race to the sanitizer, which cannot see into it. So
    // nothing is given back to it.
    union {
        Queue queue_;
    };

  public:
    EventQueue() {
        new (&queue_) Queue;
    }
    ~EventQueue() {
        queue_.clear();
    }
#else
    Queue queue_;
#endif
};

}  // namespace Metrics::detail
