#include "metrics/output/EventRouter.h"

#include "metrics/output/EventKind.h"
#include "metrics/output/VolatileData.h"
#include "metrics/platform/Prefetch.h"

namespace Metrics::detail {

namespace {

// More contexts than this don't stay in the cache.
constexpr std::size_t kSpread = 1024;

}  // namespace

EventRouter::EventRouter(Mode mode, RootStreams::Form form, TargetList& targets, RootHandler onRoot,
                         LogHandler log)
    : mode_(mode),
      sequencer_(mode == Mode::EachItsOwn ? EventSequencer::Mode::RequestedRoot
                                          : EventSequencer::Mode::LowestRoot),
      targets_(targets),
      streams_(mode == Mode::EachItsOwn
                   ? nullptr
                   : std::make_unique<RootStreams>(form, sequencer_.Forest().Blocks(), targets)),
      onRoot_(std::move(onRoot)),
      log_(std::move(log)) {
    if (mode == Mode::AsTheyEnd) sequencer_.LeaveTurns();
}

void EventRouter::MuteVolatileData() {
    mute_ = true;
    if (streams_) streams_->MuteVolatileData();
}

Audience* EventRouter::Foremost() {
    auto& audiences = targets_.Audiences();
    return audiences.empty() ? nullptr : &audiences.begin()->second;
}

// A batch counts as one moment: its lowest root goes first, wherever it stands in the batch.
void EventRouter::AnnounceBatch() {
    if (unannounced_ == batchEnd_ || sequencer_.Begun() != nullptr || !sequencer_.InTurn()) return;
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
    unannounced_ = SharesTargets() ? batch.data() : batchEnd_;
    const bool spread = !SharesTargets() && sequencer_.Forest().Size() > kSpread;
    for (std::span<const MetricsEvent> left = batch; !left.empty(); left = left.subspan(Take(left))) {
        if (spread) FetchAhead(left);
        if (SharesTargets() && HoldsTooMuch()) [[unlikely]]
            Relieve();
    }
    if (Audience* const audience = SharesTargets() ? Foremost() : nullptr) FinishShared(*audience);
    unannounced_ = batchEnd_ = nullptr;
}

std::size_t EventRouter::Pass(Audience& audience, ContextRecord& record, const EventRun& run) {
    RootRecord& root = *record.root;
    Deliver(audience, root, run.events);
    RootRecord* left = sequencer_.Passed(root, run);
    const bool goesOn = left != nullptr && left->current == &record;
    if (!goesOn && Serve(audience, left) == nullptr && sequencer_.InTurn()) ServeInTurn(audience);
    return run.events.size();
}

void EventRouter::KeepStranger(ContextRecord& record, const MetricsEvent& event) {
    sequencer_.Hold(record, event);
    const bool nobodyListens = SharesTargets() && Foremost() == nullptr;
    if (nobodyListens && sequencer_.RootlessWaiting() > EventSequencer::kMostRootless)
        sequencer_.DropRootless();
}

void EventRouter::KeepUnwatched(RootRecord& root, ContextRecord& record, const MetricsEvent& event) {
    const MetricsEventType type = event.Type();
    const bool closes = type == MetricsEventType::ContextClose || type == MetricsEventType::DemuxSynthesized;
    if (closes && record.id == root.id) return Drop(root);
    sequencer_.Hold(record, event);
    if (root.waiting <= kMostKept) return;
    log_("MetricsOutput: context " + std::to_string(root.id) + " has no target; its first " +
         std::to_string(kMostKept) + " events and all later ones are dropped");
    Drop(root);
}

void EventRouter::Drop(RootRecord& root) {
    sequencer_.Drop(root);
    if (RootStream* stream = sequencer_.TakeEnded()) streams_->End(nullptr, *stream);
}

void EventRouter::Welcome(std::uint64_t rootId) {
    if (SharesTargets()) return;
    auto& audiences = targets_.Audiences();
    if (const auto found = audiences.find(rootId); found != audiences.end())
        Attach(found->second);
    else if (onRoot_)
        onRoot_(rootId);
}

void EventRouter::Attach(Audience& audience) {
    if (SharesTargets()) return ServeShared();
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
    if (SharesTargets()) {
        ServeShared();
    } else {
        for (auto& [contextId, audience] : targets_.Audiences())
            Serve(audience, sequencer_.FindRoot(contextId));
    }
    sequencer_.SetForcing({});
}

RootRecord* EventRouter::Serve(Audience& audience, RootRecord* root) {
    for (EventRun run; !(run = sequencer_.Next(root)).events.empty();) {
        Deliver(audience, *root, run.events);
        root = sequencer_.Release(*root, run);
    }
    if (root != nullptr) return root;
    if (RootStream* stream = sequencer_.TakeEnded()) streams_->End(&audience, *stream);
    return nullptr;
}

// Serves all roots, where otherwise only those are that something arrives for.
void EventRouter::ServeShared() {
    Audience* const audience = Foremost();
    if (audience == nullptr) return;
    if (!sequencer_.InTurn()) ServeEach(*audience);
    FinishShared(*audience);
}

void EventRouter::FinishShared(Audience& audience) {
    if (sequencer_.Forest().Blocks().Bytes() <= heldLimit_) threshold_ = heldLimit_;
    if (mode_ == Mode::OneAfterTheOther && !sequencer_.InTurn()) TakeTurnsAgain();
    if (sequencer_.InTurn()) return ServeInTurn(audience);
    while (ServeContextless(audience)) continue;
}

void EventRouter::ServeEach(Audience& audience) {
    auto& roots = sequencer_.Forest().Roots();
    for (auto root = roots.begin(); root != roots.end();) {
        RootRecord& one = root->second;
        ++root;  // this one may end
        Serve(audience, &one);
    }
}

void EventRouter::ServeInTurn(Audience& audience) {
    for (;;) {
        AnnounceBatch();
        if (RootRecord* root = sequencer_.Served()) {
            if (Serve(audience, root) != nullptr) return;
        } else if (!ServeContextless(audience)) {
            return;
        }
    }
}

bool EventRouter::ServeContextless(Audience& audience) {
    const MetricsEvent* event = sequencer_.NextRootless();
    if (event == nullptr) return false;
    streams_->WriteContextless(audience, *event);
    sequencer_.ReleaseRootless();
    return true;
}

void EventRouter::Deliver(Audience& audience, RootRecord& root, std::span<const MetricsEvent> events) {
    if (!SharesTargets()) return DeliverToOwn(audience, events);
    if (sequencer_.InTurn()) return streams_->Write(audience, root, events);
    streams_->Add(audience, root, events);
}

void EventRouter::DeliverToOwn(Audience& audience, std::span<const MetricsEvent> events) {
    if (!mute_) return SendToOwn(audience, events);
    for (const MetricsEvent& event : events)
        if (!IsVolatile(event, audience.muted)) SendToOwn(audience, {&event, 1});
}

void EventRouter::SendToOwn(Audience& audience, std::span<const MetricsEvent> events) {
    targets_.Write(audience, events);
    const MetricsEvent& last = events.back();
    if (last.Type() == MetricsEventType::ContextClose && ContextOf(last) == audience.contextId)
        targets_.Mark(audience);
}

}  // namespace Metrics::detail
