#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "metrics/output/EventSequencer.h"
#include "metrics/output/TargetList.h"

namespace Metrics::detail {

// Takes batches, puts their events in order and hands each to the targets of its root. An event whose turn it
// is when it arrives goes to them on the spot; the others wait in the sequencer.
class EventRouter {
  public:
    using RootHandler = std::function<void(std::uint64_t)>;
    using LogHandler = std::function<void(std::string)>;

    // Events kept for a root that is open and has no target.
    static constexpr std::size_t kMostKept = 1000000;

    // `onRoot` is told of each new root and may open targets; empty if nobody needs to know.
    EventRouter(EventSequencer::Mode mode, TargetList& targets, RootHandler onRoot, LogHandler log)
        : mode_(mode),
          sequencer_(mode),
          targets_(targets),
          onRoot_(std::move(onRoot)),
          log_(std::move(log)) {}

    void MuteVolatileData() { mute_ = true; }

    void Route(const std::vector<MetricsEvent>& batch);
    // Lets out what forced closure releases.
    void Drain(const EventSequencer::Forcing& forcing);

    // A context has its first target, and gets what was kept for it; or it has lost its last one.
    void Attach(Audience& audience);
    void Detach(std::uint64_t contextId);

    // Whether the root has begun and not ended.
    bool HasRoot(std::uint64_t contextId) { return sequencer_.FindRoot(contextId) != nullptr; }
    bool IsChild(std::uint64_t contextId) { return sequencer_.IsChild(contextId); }

  private:
    void FetchAhead(std::span<const MetricsEvent> events) const;
    // These take the first of the events, or more, and return how many.
    std::size_t Take(std::span<const MetricsEvent> events);
    std::size_t Keep(ContextRecord& record, std::span<const MetricsEvent> events);
    std::size_t Pass(Audience& audience, ContextRecord& record, const EventRun& run);
    void KeepStranger(ContextRecord& record, const MetricsEvent& event);
    void KeepUnwatched(RootRecord& root, ContextRecord& record, const MetricsEvent& event);
    void Welcome(std::uint64_t rootId);

    bool ServesInTurn() const { return mode_ == EventSequencer::Mode::LowestRoot; }
    // Who gets the output of a root, or null.
    Audience* AudienceOf(const RootRecord& root) { return ServesInTurn() ? Foremost() : root.audience; }
    // In LowestRoot: the audience of the smallest context id, which gets everything.
    Audience* Foremost();
    void AnnounceBatch();

    void Deliver(Audience& audience, std::span<const MetricsEvent> events);
    void Send(Audience& audience, std::span<const MetricsEvent> events);
    // Lets out what can be released of a root. Returns the root, or null when it ended.
    RootRecord* Serve(Audience& audience, RootRecord* root);
    void ServeInTurn();

    const EventSequencer::Mode mode_;
    EventSequencer sequencer_;
    TargetList& targets_;
    const RootHandler onRoot_;
    const LogHandler log_;
    bool mute_ = false;

    // In LowestRoot: what of the batch has not been searched for roots.
    const MetricsEvent* unannounced_ = nullptr;
    const MetricsEvent* batchEnd_ = nullptr;
};

}  // namespace Metrics::detail
