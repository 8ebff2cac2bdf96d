#include "metrics/output/EventRouter.h"

#include "metrics/output/EventKind.h"
#include "metrics/output/VolatileData.h"

namespace Metrics::detail {

Audience* EventRouter::Foremost() {
    auto& audiences = targets_.Audiences();
    return audiences.empty() ? nullptr : &audiences.begin()->second;
}

void EventRouter::Route(const std::vector<MetricsEvent>& batch) {
    batchEnd_ = batch.data() + batch.size();
    unannounced_ = ServesInTurn() ? batch.data() : batchEnd_;
    for (const MetricsEvent& event : batch) Take(event);
    if (ServesInTurn()) ServeInTurn();
    unannounced_ = batchEnd_ = nullptr;
}

// A batch counts as one moment: its lowest root goes first, wherever it stands in the batch.
void EventRouter::AnnounceBatch() {
    if (unannounced_ == batchEnd_ || sequencer_.Begun() != nullptr) return;
    sequencer_.AnnounceRoots(unannounced_, batchEnd_);
    unannounced_ = batchEnd_;
}

void EventRouter::Take(const MetricsEvent& event) {
    const auto [record, newRoot] = sequencer_.Admit(event);
    const std::uint64_t rootId = newRoot != nullptr ? newRoot->id : 0;
    if (record != nullptr) Keep(*record, event);
    if (rootId != 0) Welcome(rootId);
}

void EventRouter::Keep(ContextRecord& record, const MetricsEvent& event) {
    RootRecord* root = record.root;
    if (root == nullptr) {
        sequencer_.Hold(record, event);
        const bool nobodyListens = ServesInTurn() && Foremost() == nullptr;
        if (nobodyListens && sequencer_.RootlessWaiting() > EventSequencer::kMostRootless)
            sequencer_.DropRootless();
        return;
    }
    Audience* audience = AudienceOf(*root);
    if (audience == nullptr) return KeepUnwatched(*root, record, event);
    KeepWatched(*audience, record, event);
}

void EventRouter::KeepWatched(Audience& audience, ContextRecord& record, const MetricsEvent& event) {
    AnnounceBatch();
    if (!sequencer_.MayPass(record)) return sequencer_.Hold(record, event);
    RootRecord& root = *record.root;
    Deliver(audience, event);
    RootRecord* left = sequencer_.Passed(root, event);
    if (left != nullptr && left->current == &record) return;
    if (Serve(audience, left) == nullptr && ServesInTurn()) ServeInTurn();
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
    while (const MetricsEvent* event = sequencer_.Next(root)) {
        Deliver(audience, *event);
        root = sequencer_.Release(*root);
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
            Deliver(*audience, *event);
            sequencer_.ReleaseRootless();
        } else {
            return;
        }
    }
}

void EventRouter::Deliver(Audience& audience, const MetricsEvent& event) {
    if (mute_ && IsVolatile(event, audience.muted)) return;
    targets_.Write(audience, event);
    if (event.Type() == MetricsEventType::ContextClose && ContextOf(event) == audience.contextId)
        targets_.Mark(audience);
}

}  // namespace Metrics::detail
