#pragma once

#include <cstdint>
#include <memory>

#include "metrics/Export.h"
#include "metrics/MetricsEvent.h"

namespace Metrics {

namespace detail {
class EventSequencer;
}

/// Puts the events of interleaved contexts into nested order: what a child context did stands where the child
/// was created in its parent's stream, complete up to its closing, before the parent goes on. No clock is
/// consulted; the order follows from who created whom. A context without a parent is a root, and roots are
/// independent of one another.
///
///     MetricsDemultiplexer demux(MetricsDemultiplexer::Mode::RequestedRoot);
///     for (const MetricsEvent& event : batch) demux.EnqueEvent(event);
///     for (MetricsEvent event; demux.DequeEvent(rootId, event);) Use(event);
///
/// Events of one context must be enqueued in the order in which they happened, and a context's creation
/// before it is created in turn by others; `MetricsManager` delivers them so. An object may be used by one
/// thread at a time. Memory: a child that is never closed holds its root's later events back until forced
/// closure releases them; of contexts whose creation has not been seen at most 65,536 events wait.
class METRICS_API MetricsDemultiplexer {
  public:
    enum class Mode : std::uint32_t {
        /// One root after the other in ascending order of id, whatever root is asked for; one that has begun
        /// goes on to its end. Events of no context (id 0) come when there is no root, or between two roots
        /// when
        /// more than 65,536 wait.
        LowestRoot = 0,
        /// The root that is asked for. Events of no context are dropped.
        RequestedRoot = 1,
    };

    explicit MetricsDemultiplexer(Mode mode);
    /// Discards what has not been dequeued.
    ~MetricsDemultiplexer();
    MetricsDemultiplexer(const MetricsDemultiplexer&) = delete;
    MetricsDemultiplexer& operator=(const MetricsDemultiplexer&) = delete;

    /// While on, DequeEvent closes children that hold back a root which itself has closed: an open one yields
    /// an event of type `DemuxSynthesized` whose param1 is the number of its open scopes; one that was never
    /// constructed is passed over. `rootId` limits this to one root, 0 means every root. In LowestRoot it
    /// works with `rootId` 0 only, and then on open roots too.
    void EnableForcedChildClosure(bool enable, unsigned long long rootId);

    /// Takes an event. Returns the id of the root context that the event created, else 0. Events of a context
    /// that is not open are dropped, but for creations.
    unsigned long long EnqueEvent(const MetricsEvent& event);

    /// Yields the next event of a root in nested order; false when none can be released now.
    bool DequeEvent(unsigned long long rootId, MetricsEvent& event);

  private:
    std::unique_ptr<detail::EventSequencer> sequencer_;
};

}  // namespace Metrics
