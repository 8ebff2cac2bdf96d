#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "metrics/MetricsDemultiplexer.h"
#include "metrics/output/ContextForest.h"
#include "metrics/output/EventRun.h"

namespace Metrics::detail {

// The ordering of events. Whoever drives it admits them run by run, and then either holds them back, to take
// them later with Next and Release, or, when MayPass says so, uses them on the spot and tells that with
// Passed. Both ways give the same order; the second neither copies events nor looks anything up.
//
// The pointers and references it hands out are good until the next call that changes something.
class EventSequencer {
  public:
    using Mode = MetricsDemultiplexer::Mode;

    // Events of context 0 that may wait for a moment without roots.
    static constexpr std::size_t kMostRootless = 65536;

    struct Forcing {
        bool on = false;
        bool final = false;  // nothing can come any more: roots that are still open end here
        std::uint64_t rootId = 0;
    };

    struct Admission {
        ContextRecord* record = nullptr;  // null when the event is dropped
        RootRecord* newRoot = nullptr;    // the root that the event created
    };

    explicit EventSequencer(Mode mode) : mode_(mode), inTurn_(mode == Mode::LowestRoot) {}

    // In LowestRoot: whether one root is served after the other, or any of them as in RequestedRoot.
    bool InTurn() const { return inTurn_; }
    void LeaveTurns() {
        inTurn_ = false;
        begun_ = nullptr;
    }
    // Back to turns; a root that is still there begins.
    void TakeTurns(std::uint64_t first) {
        inTurn_ = true;
        begun_ = FindRoot(first);
    }

    void SetForcing(const Forcing& forcing) { forcing_ = forcing; }

    // Notes what an arriving event says about its context. What is said of one event of a run holds for all.
    Admission Admit(const MetricsEvent& event) {
        if (event.Type() <= MetricsEventType::ContextClose) return AdmitLifecycle(event);
        ContextRecord* record = Find(ContextOf(event));
        if (record == nullptr || !record->open) [[unlikely]]
            return LeaveOut(event);
        return {record, nullptr};
    }
    void Hold(ContextRecord& record, const MetricsEvent& event) {
        if (&record == &rootless_)
            rootless_.waiting.Push(event);
        else
            forest_.Hold(record, event);
    }
    // Whether the events just admitted for `record` come next in the order.
    bool MayPass(const ContextRecord& record) { return IsNext(record) && IsServed(*record.root); }
    // A passed run was used. Returns the root, or null when that was its end.
    RootRecord* Passed(RootRecord& root, const EventRun& run) { return Settle(root, EffectOf(run)); }

    // In LowestRoot: the root whose turn it is; null when it is the turn of context 0.
    RootRecord* Served() { return begun_ != nullptr ? begun_ : ChooseServed(); }
    // The root that is being served to its end, if any.
    const RootRecord* Begun() const { return begun_; }
    // Makes roots known before their turn to be admitted, so that an earlier choice counts them in.
    void AnnounceRoots(const MetricsEvent* first, const MetricsEvent* last);

    // The next run of a root, empty when nothing can be released now; forced closure happens here. `root`
    // becomes null when it ended without an event.
    EventRun Next(RootRecord*& root) {
        if (root == nullptr) return {};
        ContextRecord* current = root->current;
        if (current != nullptr && !current->waiting.Empty())
            return EventRun::Leading(current->waiting.Front());
        return forcing_.on ? Force(root) : EventRun{};
    }
    // Drops the run that Next returned. Returns the root, or null when that was its end.
    RootRecord* Release(RootRecord& root, const EventRun& run);

    // The same for context 0, while it is its turn, one event at a time.
    const MetricsEvent* NextRootless();
    void ReleaseRootless();
    std::size_t RootlessWaiting() const { return rootless_.waiting.Size(); }
    void DropRootless() { rootless_.waiting.Clear(); }

    // All of the above in one: takes the next event of a root, or of whose turn it is in LowestRoot.
    bool Take(std::uint64_t rootId, MetricsEvent& event);

    // The root does not wait any more for the context that its turn is at, of which nothing is held: that
    // one becomes a root, `*own`, if anything is known of it. False when it is the root's own turn.
    bool SplitOff(RootRecord& root, RootRecord** own);
    // The stream of the root that ended or was dropped last; once.
    RootStream* TakeEnded() { return std::exchange(ended_, nullptr); }

    // Events that were left out since the last time: of contexts that had closed or whose root had ended.
    std::uint64_t TakeLeftOut() { return std::exchange(leftOut_, 0) + forest_.TakeForgotten(); }

    ContextForest& Forest() { return forest_; }
    const ContextForest& Forest() const { return forest_; }
    RootRecord* FindRoot(std::uint64_t id) { return forest_.FindRoot(id); }
    // True when `id` is a known context and not a root.
    bool IsChild(std::uint64_t id);
    // Forgets a root and all that is held for it.
    void Drop(RootRecord& root);

  private:
    // What a run does to the order once it is released.
    struct Effect {
        bool ends = false;         // the context
        std::uint64_t child = 0;   // that begins here, or 0
        std::uint32_t openScopes;  // that it adds
    };

    static Effect EffectOf(const EventRun& run) {
        const MetricsEvent& first = run.events.front();
        const MetricsEventType type = first.Type();
        return {type == MetricsEventType::ContextClose || type == MetricsEventType::DemuxSynthesized,
                CreatesChild(first) ? CreatedContext(first) : 0, run.openScopes};
    }
    Admission LeaveOut(const MetricsEvent& event);
    Admission AdmitLifecycle(const MetricsEvent& event);
    Admission AdmitCreation(const MetricsEvent& event);
    ContextRecord* Find(std::uint64_t id) { return id != 0 ? forest_.Find(id) : &rootless_; }
    ContextRecord* FindOrAdd(std::uint64_t id);
    RootRecord* ChooseServed();

    static bool IsNext(const ContextRecord& record) {
        return record.root != nullptr && record.root->current == &record && record.waiting.Empty();
    }
    bool IsServed(const RootRecord& root) { return !inTurn_ || Served() == &root; }

    RootRecord* Settle(RootRecord& root, const Effect& effect);
    void Descend(RootRecord& root, std::uint64_t child);
    RootRecord* Ascend(RootRecord& root);
    ContextRecord* FindInTree(const RootRecord& root, std::uint64_t id);

    EventRun Force(RootRecord*& root);
    bool MayForce(const RootRecord& root);
    void CloseByForce(ContextRecord& current);

    const Mode mode_;
    bool inTurn_;
    Forcing forcing_;
    ContextForest forest_;
    ContextRecord rootless_{0, forest_.Blocks()};  // context 0; only used in LowestRoot
    bool flushesRootless_ = false;
    RootRecord* begun_ = nullptr;
    RootStream* ended_ = nullptr;
    std::uint64_t leftOut_ = 0;
};

}  // namespace Metrics::detail
