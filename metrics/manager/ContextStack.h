#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "metrics/manager/ContextState.h"
#include "metrics/platform/Platform.h"

namespace Metrics::detail {

/// The clock of the processor times; tests put their own in its place.
using ProcessorClock = platform::ProcessorTime (*)();
extern constinit ProcessorClock processorClock;

/// Says that a context was destroyed while stacks of threads may still hold it.
void NoteContextLeftBehind() noexcept;

/// The contexts that one thread works for, the current one on top, and the account of the processor time that
/// it spends on them. Used by its thread only.
///
/// A context has a clock of its own, which runs while a scope in it is measured and a thread works for it:
/// while it is the current context of a thread, or an ancestor of it, as far as the parents stand on the same
/// stack. What a thread spent is added when it leaves the context (or turns to one that is not its
/// descendant) and when it reads the clock; so a context that changes threads adds up what each spent on it,
/// and units that take turns on a thread are each charged with their own. The system's clock is read only
/// where that changes something for a context that is measured.
class ContextStack {
  public:
    ContextStack() = default;
    ~ContextStack();
    ContextStack(const ContextStack&) = delete;
    ContextStack& operator=(const ContextStack&) = delete;

    /// The current context, or null.
    ContextState* Current() const { return current_; }
    bool Holds(const ContextState* state, std::uint64_t id) const;

    using Figures = MetricsTimeStack::Figures;

    /// Where a context stands.
    struct Place {
        bool isOnStack = false;
        std::size_t index = 0;
        const ContextState* above = nullptr;  // only to be compared
    };
    Place Find(const ContextState* state) const;

    /// The one place where a thread takes a context: to the top, and nowhere else. It takes over the enabled
    /// flag of the one it covers. Throws `std::bad_alloc`.
    void Take(ContextState* state);
    /// The one place where a thread leaves it: off the stack, or back to where it stood once.
    void Leave(ContextState* state, const Place& back) noexcept;
    /// Leaves them all.
    void Clear() noexcept;

    /// A scope of this thread opens on the current context: what it refers to stays until it closes.
    void PinCurrent() { ++entries_.back().openScopes; }
    void Unpin(ContextState* state) {
        if (PinsOnTop(state)) [[likely]] {
            --entries_.back().openScopes;
        } else {
            UnpinBelow(state);
        }
    }
    bool PinsOnTop(const ContextState* state) const {
        return state == current_ && entries_.back().openScopes > 0;
    }

    /// Makes the top entry of the context's time stack a measured one, from now on or from its birth. Returns
    /// its number; throws `std::bad_alloc`.
    std::uint64_t StartMeasuring(ContextState& context, bool fromBirth);
    /// The figures of that entry, which ends with it. With 0 those of the top entry, which does not.
    Figures StopMeasuring(ContextState& context, std::uint64_t entry) noexcept;
    /// A scope that is no longer measured, or never was, has closed.
    static void PopTime(ContextState& context) noexcept { context.timeStack.PopUnmeasured(); }

  private:
    using Times = MetricsTimeStack::Times;

    struct Entry {
        ContextState* state;
        std::uint32_t openScopes = 0;
        bool leads = false;             // the current context is this one or stands under it
        bool runs = false;              // its clock does, on this thread
        std::uint32_t measuredRun = 0;  // in which run of measured scopes, since when
        Times since{0, 0};
    };
    using Iterator = std::vector<Entry>::iterator;
    class Clock;

    Iterator IteratorOf(const ContextState* state);
    Entry Extract(ContextState* state) noexcept;
    void PutBack(ContextState* state, const Place& back) noexcept;
    void Drop(Entry& entry, Clock& clock) noexcept;
    void Changed(Clock& clock, bool onlyChild) noexcept;
    bool DropDead(Clock& clock) noexcept;
    void MarkLeading() noexcept;
    void StartOrStop(Entry& entry, Clock& clock) noexcept;
    void UnpinBelow(ContextState* state);
    Times Spent(ContextState& context, Clock& clock) noexcept;
    void NoteMeasured(ContextState& context, Clock& clock) noexcept;
    static void Charge(Entry& entry, const Times& now) noexcept;

    ContextState* current_ = nullptr;  // at the top of the stack
    std::vector<Entry> entries_;
    // Off the stack, but scopes on them are still open.
    std::vector<Entry> pinned_;
    std::uint64_t leftBehind_ = 0;  // how many contexts were, when dead entries were last looked for
};

}  // namespace Metrics::detail
