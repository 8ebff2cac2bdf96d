#include "metrics/output/EventRouter.h"

#include "metrics/output/EventKind.h"
#include "metrics/output/VolatileData.h"
#include "metrics/platform/Prefetch.h"

namespace Metrics::detail {

namespace {

// More contexts than this don't stay in the cache.
constexpr std::size_t kSpread = 1024;

}  // namespace

Audience* EventRouter::Foremost() {
    auto& audiences = targets_.Audiences();
    return audiences.empty() ? nullptr : &audiences.begin()->second;
}

// A batch counts as one moment: its lowest root goes first, wherever it stands in the batch.
void EventRouter::AnnounceBatch() {
    if (unannounced_ == batchEnd_ || sequencer_.Begun() != nullptr) return;
    sequencer_.AnnounceRoots(unannounced_, batchEnd_);
    unannounced_ = batchEnd_;
}

inline std::size_t EventRouter::Take(std::span<const MetricsEvent> events) {
    const auto [record, newRoot] = sequencer_.Admit(events.front());
    const std::uint64_t rootId = newRoot != nullptr ? newRoot->id : 0;
    const std::size_t taken = record != nullptr ? Keep(*record, events) : 1;
    if (rootId != 0) Welcome(rootId);
    return taken;
}

inline std::size_t EventRouter::Keep(ContextRecord& record, std::span<const MetricsEvent> events) {
    RootRecord* root = record.root;
    Audience* audience = root != nullptr ? AudienceOf(*root) : nullptr;
    if (audience != nullptr) {
        AnnounceBatch();
        if (sequencer_.MayPass(record)) return Pass(*audience, record, EventRun::LeadingOfBatch(events));
        sequencer_.Hold(record, events.front());
    } else if (root != nullptr) {
        KeepUnwatched(*root, record, events.front());
    } else {
        KeepStranger(record, events.front());
    }
    return 1;
}

// What is known of a context leads from one place in memory to the next, and with thousands of contexts all
// of them have left the cache by its next event. So each place is fetched some events before it is needed,
// and the one that it leads to some events later.
void EventRouter::FetchAhead(std::span<const MetricsEvent> events) const {
    if (events.size() <= 12) return;
    const auto record = [&](std::size_t ahead) {
        return sequencer_.Forest().Guess(ContextOf(events[ahead]));
    };
    const auto root = [&](std::size_t ahead) {
        return record(ahead) != nullptr ? record(ahead)->root : nullptr;
    };
    const auto audience = [&](std::size_t ahead) {
        return root(ahead) != nullptr ? root(ahead)->audience : nullptr;
    };
    const auto target = [&](std::size_t ahead) {
        return audience(ahead) != nullptr ? audience(ahead)->targets.front() : nullptr;
    };
    constexpr std::size_t kWriter = 128;  // what writers have of their own, more or less
    platform::Prefetch(record(12), sizeof(ContextRecord));
    platform::Prefetch(root(9), sizeof(RootRecord));
    platform::Prefetch(audience(7), sizeof(Audience));
    platform::Prefetch(target(5), sizeof(OutputTarget));
    if (target(3) != nullptr) platform::Prefetch(target(3)->writer.get(), kWriter);
}

void EventRouter::Route(const std::vector<MetricsEvent>& batch) {
    batchEnd_ = batch.data() + batch.size();
    unannounced_ = ServesInTurn() ? batch.data() : batchEnd_;
    const bool spread = !ServesInTurn() && sequencer_.Forest().Size() > kSpread;
    for (std::span<const MetricsEvent> left = batch; !left.empty(); left = left.subspan(Take(left)))
        if (spread) FetchAhead(left);
    if (ServesInTurn()) ServeInTurn();
    unannounced_ = batchEnd_ = nullptr;
}

std::size_t EventRouter::Pass(Audience& audience, ContextRecord& record, const EventRun& run) {
    RootRecord& root = *record.root;
    Deliver(audience, run.events);
    RootRecord* left = sequencer_.Passed(root, run);
    const bool goesOn = left != nullptr && left->current == &record;
    if (!goesOn && Serve(audience, left) == nullptr && ServesInTurn()) ServeInTurn();
    return run.events.size();
}

void EventRouter::KeepStranger(ContextRecord& record, const MetricsEvent& event) {
    sequencer_.Hold(record, event);
    const bool nobodyListens = ServesInTurn() && Foremost() == nullptr;
    if (nobodyListens && sequencer_.RootlessWaiting() > EventSequencer::kMostRootless)
        sequencer_.DropRootless();
}

void EventRouter::KeepUnwatched(RootRecord& root, ContextRecord& record, const MetricsEvent& event) {
    const MetricsEventType type = event.Type();
    const bool closes = type == MetricsEventType::ContextClose || type == MetricsEventType::DemuxSynthesized;
    if (closes && record.id == root.id) return sequencer_.Drop(root);
    sequencer_.Hold(record, event);
    if (root.waiting <= kMostKept) return;
    log_("MetricsOutput: context " + std::to_string(root.id) + " has no target; its first " +
         std::to_string(kMostKept) + " events and all later ones are dropped");
    sequencer_.Drop(root);
}

void EventRouter::Welcome(std::uint64_t rootId) {
    if (ServesInTurn()) return;
    auto& audiences = targets_.Audiences();
    if (const auto found = audiences.find(rootId); found != audiences.end())
        Attach(found->second);
    else if (onRoot_)
        onRoot_(rootId);
}

void EventRouter::Attach(Audience& audience) {
    if (ServesInTurn()) return ServeInTurn();
    RootRecord* root = sequencer_.FindRoot(audience.contextId);
    if (root == nullptr) return;
    root->audience = &audience;
    Serve(audience, root);
}

void EventRouter::Detach(std::uint64_t contextId) {
    if (RootRecord* root = sequencer_.FindRoot(contextId)) root->audience = nullptr;
}

void EventRouter::Drain(const EventSequencer::Forcing& forcing) {
    sequencer_.SetForcing(forcing);
    if (ServesInTurn()) {
        ServeInTurn();
    } else {
        for (auto& [contextId, audience] : targets_.Audiences())
            Serve(audience, sequencer_.FindRoot(contextId));
    }
    sequencer_.SetForcing({});
}

RootRecord* EventRouter::Serve(Audience& audience, RootRecord* root) {
    for (EventRun run; !(run = sequencer_.Next(root)).events.empty();) {
        Deliver(audience, run.events);
        root = sequencer_.Release(*root, run);
    }
    return root;
}

void EventRouter::ServeInTurn() {
    Audience* audience = Foremost();
    while (audience != nullptr) {
        AnnounceBatch();
        if (RootRecord* root = sequencer_.Served()) {
            if (Serve(*audience, root) != nullptr) return;
        } else if (const MetricsEvent* event = sequencer_.NextRootless()) {
            Deliver(*audience, {event, 1});
            sequencer_.ReleaseRootless();
        } else {
            return;
        }
    }
}

void EventRouter::Deliver(Audience& audience, std::span<const MetricsEvent> events) {
    if (!mute_) return Send(audience, events);
    for (const MetricsEvent& event : events)
        if (!IsVolatile(event, audience.muted)) Send(audience, {&event, 1});
}

void EventRouter::Send(Audience& audience, std::span<const MetricsEvent> events) {
    targets_.Write(audience, events);
    const MetricsEvent& last = events.back();
    if (last.Type() == MetricsEventType::ContextClose && ContextOf(last) == audience.contextId)
        targets_.Mark(audience);
}

}  // namespace Metrics::detail
