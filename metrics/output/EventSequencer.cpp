#include "metrics/output/EventSequencer.h"

namespace Metrics::detail {

ContextRecord* EventSequencer::FindOrAdd(std::uint64_t id) {
    if (id != 0) return &forest_.FindOrAdd(id);
    return mode_ == Mode::LowestRoot ? &rootless_ : nullptr;
}

EventSequencer::Admission EventSequencer::AdmitLifecycle(const MetricsEvent& event) {
    switch (event.Type()) {
        case MetricsEventType::ContextCreate: return AdmitCreation(event);
        case MetricsEventType::ContextConstruct: {
            ContextRecord* record = FindOrAdd(ContextOf(event));
            if (record == nullptr) return {};
            record->open = true;
            record->openScopes = 0;
            record->component = event.ComponentId();
            return {record, nullptr};
        }
        default: {
            ContextRecord* record = Find(ContextOf(event));
            if (record == nullptr || !record->open) return {};
            if (event.Type() == MetricsEventType::ContextClose) record->open = false;
            return {record, nullptr};
        }
    }
}

// What belongs to no context is left out elsewhere. A scope that closes after its context was written as
// ended with it: nothing of it is missing.
EventSequencer::Admission EventSequencer::LeaveOut(const MetricsEvent& event) {
    const MetricsEventType type = event.Type();
    const bool isMark = type >= MetricsEventType::ScopeOpen && type <= MetricsEventType::NameValue;
    if (isMark && type != MetricsEventType::ScopeClose && ContextOf(event) != 0) ++leftOut_;
    return {};
}

// Accepted whether or not the context that it stands in is open.
EventSequencer::Admission EventSequencer::AdmitCreation(const MetricsEvent& event) {
    Admission admission;
    const std::uint64_t created = CreatedContext(event);
    if (created != 0 && CreatesRoot(event)) admission.newRoot = forest_.AddRoot(created);
    admission.record = FindOrAdd(ContextOf(event));
    if (created != 0 && CreatesChild(event) && admission.record != nullptr && admission.record != &rootless_)
        forest_.Announce(*admission.record, created);
    return admission;
}

RootRecord* EventSequencer::Release(RootRecord& root, const EventRun& run) {
    const Effect effect = EffectOf(run);
    forest_.PopFront(*root.current, run.events.size());
    return Settle(root, effect);
}

RootRecord* EventSequencer::Settle(RootRecord& root, const Effect& effect) {
    if (inTurn_) begun_ = &root;
    if (effect.ends) return Ascend(root);
    if (effect.child != 0)
        Descend(root, effect.child);
    else if (root.current->open)
        root.current->openScopes += effect.openScopes;
    return &root;
}

ContextRecord* EventSequencer::FindInTree(const RootRecord& root, std::uint64_t id) {
    ContextRecord* record = forest_.Find(id);
    return record != nullptr && record->root == &root ? record : nullptr;
}

void EventSequencer::Descend(RootRecord& root, std::uint64_t child) {
    root.chain.push_back(child);
    root.current = FindInTree(root, child);
    if (root.current != nullptr) root.current->inChain = true;
}

RootRecord* EventSequencer::Ascend(RootRecord& root) {
    const std::size_t before = root.waiting;
    if (root.current != nullptr) forest_.Erase(*root.current);
    root.chain.pop_back();
    leftOut_ += root.chain.empty() ? before : before - root.waiting;
    if (root.chain.empty()) {
        Drop(root);
        return nullptr;
    }
    root.current = FindInTree(root, root.chain.back());
    return &root;
}

void EventSequencer::Drop(RootRecord& root) {
    if (begun_ == &root) begun_ = nullptr;
    ended_ = root.stream;
    forest_.RemoveRoot(root);
}

RootRecord* EventSequencer::ChooseServed() {
    if (RootlessWaiting() > kMostRootless) flushesRootless_ = true;
    return flushesRootless_ ? nullptr : forest_.LowestRoot();
}

void EventSequencer::AnnounceRoots(const MetricsEvent* first, const MetricsEvent* last) {
    for (; first != last; ++first)
        if (CreatesRoot(*first) && CreatedContext(*first) != 0) forest_.AddRoot(CreatedContext(*first));
}

EventRun EventSequencer::Force(RootRecord*& root) {
    while (root != nullptr) {
        ContextRecord* current = root->current;
        if (current != nullptr && !current->waiting.Empty())
            return EventRun::Leading(current->waiting.Front());
        if (!MayForce(*root)) return {};
        if (current != nullptr && current->open)
            CloseByForce(*current);
        else if (root->chain.size() > 1 || forcing_.final)
            root = Ascend(*root);  // announced and never constructed: there is nothing to close
        else
            return {};
    }
    return {};
}

bool EventSequencer::MayForce(const RootRecord& root) {
    if (forcing_.final) return true;
    // In LowestRoot it is always root 0 that is asked for, and that never is open.
    if (mode_ == Mode::LowestRoot) return forcing_.rootId == 0;
    if (forcing_.rootId != 0 && forcing_.rootId != root.id) return false;
    if (root.chain.back() == root.id) return false;
    const ContextRecord* itself = FindInTree(root, root.id);
    return itself == nullptr || !itself->open;
}

void EventSequencer::CloseByForce(ContextRecord& current) {
    const Opaque64 header(MetricsEvent::PackHeader(MetricsEventType::DemuxSynthesized, current.component, 0));
    forest_.Hold(current,
                 MetricsEvent(header, current.id, MetricsValue::FromCurrentTime(), current.openScopes, 0));
    current.open = false;
}

bool EventSequencer::SplitOff(RootRecord& root, RootRecord** own) {
    if (root.chain.size() < 2) return false;
    *own = root.current != nullptr ? forest_.SplitOff(*root.current) : nullptr;
    root.chain.pop_back();
    root.current = FindInTree(root, root.chain.back());
    return true;
}

const MetricsEvent* EventSequencer::NextRootless() {
    if (!inTurn_ && RootlessWaiting() > kMostRootless) flushesRootless_ = true;
    const bool itsTurn = flushesRootless_ || forest_.LowestRoot() == nullptr;
    return itsTurn && !rootless_.waiting.Empty() ? &rootless_.waiting.Front().front() : nullptr;
}

void EventSequencer::ReleaseRootless() {
    rootless_.waiting.Pop(1);
    if (rootless_.waiting.Empty()) flushesRootless_ = false;
}

bool EventSequencer::Take(std::uint64_t rootId, MetricsEvent& event) {
    RootRecord* root = mode_ == Mode::RequestedRoot ? FindRoot(rootId) : Served();
    for (; root != nullptr; root = Served()) {
        if (const EventRun run = Next(root); !run.events.empty()) {
            event = run.events.front();
            Release(*root, EventRun::Leading(run.events.first(1)));
            return true;
        }
        if (root != nullptr || mode_ == Mode::RequestedRoot) return false;
    }
    if (mode_ == Mode::RequestedRoot || NextRootless() == nullptr) return false;
    event = *NextRootless();
    ReleaseRootless();
    return true;
}

bool EventSequencer::IsChild(std::uint64_t id) {
    const ContextRecord* record = forest_.Find(id);
    return record != nullptr && record->root != nullptr && record->root->id != id;
}

}  // namespace Metrics::detail
