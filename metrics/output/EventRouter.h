#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "metrics/output/EventSequencer.h"
#include "metrics/output/RootStreams.h"
#include "metrics/output/TargetList.h"

namespace Metrics::detail {

// Takes batches, puts their events in order and hands each to the targets of its root. An event whose turn it
// is when it arrives goes to them on the spot; the others wait in the sequencer.
//
// Where the same targets get all roots, these come one after the other; or, in Completed and while too much
// waits, in the order in which they end.
class EventRouter {
  public:
    using RootHandler = std::function<void(std::uint64_t)>;
    using LogHandler = std::function<void(std::string)>;
    enum class Mode { EachItsOwn, OneAfterTheOther, AsTheyEnd };

    // Events kept for a root that is open and has no target.
    static constexpr std::size_t kMostKept = 1000000;
    // Bytes that may be held where the same targets get all roots.
    static constexpr std::size_t kHeldLimit = std::size_t{64} << 20;

    // `onRoot` is told of each new root and may open targets; empty if nobody needs to know.
    EventRouter(Mode mode, RootStreams::Form form, TargetList& targets, RootHandler onRoot, LogHandler log);

    void MuteVolatileData();
    void SetHeldLimit(std::size_t bytes);

    void Route(const std::vector<MetricsEvent>& batch);
    // Lets out what forced closure releases.
    void Drain(const EventSequencer::Forcing& forcing);

    // A context has its first target, and gets what was kept for it; or it has lost its last one.
    void Attach(Audience& audience);
    void Detach(std::uint64_t contextId);

    // Whether the root has begun and not ended.
    bool HasRoot(std::uint64_t contextId) { return sequencer_.FindRoot(contextId) != nullptr; }
    bool IsChild(std::uint64_t contextId) { return sequencer_.IsChild(contextId); }

    // Events left out since the last time, because their context or its root had ended.
    std::uint64_t TakeLeftOut() { return sequencer_.TakeLeftOut(); }
    // Events that wait for a context or root which may yet come.
    std::uint64_t Homeless() const { return sequencer_.Forest().StrangeEvents(); }

  private:
    void FetchAhead(std::span<const MetricsEvent> events) const;
    // These take the first of the events, or more, and return how many.
    std::size_t Take(std::span<const MetricsEvent> events);
    std::size_t Keep(ContextRecord& record, std::span<const MetricsEvent> events);
    std::size_t Pass(Audience& audience, ContextRecord& record, const EventRun& run);
    void KeepStranger(ContextRecord& record, const MetricsEvent& event);
    void KeepUnwatched(RootRecord& root, ContextRecord& record, const MetricsEvent& event);
    void Welcome(std::uint64_t rootId);
    void Drop(RootRecord& root);

    bool SharesTargets() const { return streams_ != nullptr; }
    // Who gets the output of a root, or null.
    Audience* AudienceOf(const RootRecord& root) { return SharesTargets() ? Foremost() : root.audience; }
    // The audience of the smallest context id, which gets everything where roots share their targets.
    Audience* Foremost();
    void AnnounceBatch();

    void Deliver(Audience& audience, RootRecord& root, std::span<const MetricsEvent> events);
    void DeliverToOwn(Audience& audience, std::span<const MetricsEvent> events);
    void SendToOwn(Audience& audience, std::span<const MetricsEvent> events);
    // Lets out what can be released of a root. Returns the root, or null when it ended.
    RootRecord* Serve(Audience& audience, RootRecord* root);
    void ServeShared();
    void FinishShared(Audience& audience);
    void ServeInTurn(Audience& audience);
    void ServeEach(Audience& audience);
    bool ServeContextless(Audience& audience);

    // The valve (EventValve.cpp)
    bool HoldsTooMuch() const { return sequencer_.Forest().Blocks().Bytes() > threshold_; }
    void Relieve();
    void LeaveTurns(Audience& audience);
    void LogLeaving(const RootRecord& root);
    void TakeTurnsAgain();
    void CutOut(Audience& audience, RootRecord* root);
    std::size_t Goal() const { return heldLimit_ - heldLimit_ / 8; }

    const Mode mode_;
    EventSequencer sequencer_;
    TargetList& targets_;
    const std::unique_ptr<RootStreams> streams_;  // where roots share their targets
    const RootHandler onRoot_;
    const LogHandler log_;
    bool mute_ = false;

    std::size_t heldLimit_ = kHeldLimit;
    std::size_t threshold_ = kHeldLimit;  // higher while there is nothing to be cut
    std::uint64_t leftAt_ = 0;            // the root that was served when turns were left

    // Where roots take turns: what of the batch has not been searched for roots.
    const MetricsEvent* unannounced_ = nullptr;
    const MetricsEvent* batchEnd_ = nullptr;
};

}  // namespace Metrics::detail
