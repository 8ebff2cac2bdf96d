#pragma once

#include <atomic>
#include <cstdint>

namespace Metrics::detail {

// When a thread draws a stamp for its next event. `last` is an atomic in the state of the event's context
// that names the queue which marked it last, 0 at first. It is relaxed: two threads use one context only in
// an order that the host makes, and by it the second one reads the name of the first or a later one.
//
// So who marks after another thread finds another name and draws; its stamp is drawn after the other's events
// were published, and above theirs. Only who takes a context draws. Who gives it up does nothing.

/// For any event of a context.
template <class Queue, class Last>
void StampForContext(Queue& queue, Last& last) noexcept {
    if (last.load(std::memory_order_relaxed) == queue.Name()) [[likely]]
        return;
    last.store(queue.Name(), std::memory_order_relaxed);
    queue.DrawStamp();
}

/// For an opening, which reads the coarse clock anyway: draws once a tick besides, so that contexts of
/// different threads come in the order of time. `tickOfDraw` belongs to the thread.
template <class Queue, class Last, class Tick>
void StampForOpening(Queue& queue, Last& last, Tick& tickOfDraw, Tick tick) noexcept {
    if (last.load(std::memory_order_relaxed) == queue.Name() && tickOfDraw == tick) [[likely]]
        return;
    tickOfDraw = tick;
    last.store(queue.Name(), std::memory_order_relaxed);
    queue.DrawStamp();
}

/// For a context's creation, and first of all that its close does.
template <class Queue, class Last>
void StampForLife(Queue& queue, Last& last) noexcept {
    last.store(queue.Name(), std::memory_order_relaxed);
    queue.DrawStamp();
}

/// For an event of no context or without its state at hand, a change of mask, a subscription.
template <class Queue>
void StampAlways(Queue& queue) noexcept {
    queue.DrawStamp();
}

}  // namespace Metrics::detail
