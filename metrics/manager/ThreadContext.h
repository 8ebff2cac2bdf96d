#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "metrics/manager/ContextStack.h"
#include "metrics/manager/Process.h"
#include "metrics/platform/Platform.h"

namespace Metrics {

class Scope;

namespace detail {
class Core;
}  // namespace detail

/// The record of one thread: its stack of contexts, its component, and the manager that it posts to. It is
/// created by the thread's first mark, used by that thread only, and freed when the thread ends. Scopes that
/// are open pin what they use of a context here, at the price of a plain counter, and stand in a list.
///
/// A scope that another thread ends is not looked for here by that thread; it leaves a note (`Depart`), which
/// this thread reads before it looks at its scopes again.
class MetricsThreadContext {
  public:
    MetricsThreadContext();
    ~MetricsThreadContext();
    MetricsThreadContext(const MetricsThreadContext&) = delete;
    MetricsThreadContext& operator=(const MetricsThreadContext&) = delete;

    /// The current context, or null.
    detail::ContextState* Current() const { return contexts_.Current(); }
    /// The id of the current context, or 0.
    std::uint64_t CurrentId() const { return Current() == nullptr ? 0 : Current()->id; }

    /// The thread takes a context and works for it: whoever attaches, constructs or guards one comes through
    /// here. False, and nothing is changed, for a context of another manager or without memory.
    bool TakeContext(detail::ContextState* state) noexcept;
    /// The thread leaves a context (it detaches or closes it, or a guard ends), wherever it stands; with a
    /// place it goes back there.
    void LeaveContext(detail::ContextState* state, const detail::ContextStack::Place& back) noexcept {
        contexts_.Leave(state, back);
    }

    /// The contexts that the thread works for.
    detail::ContextStack& Contexts() { return contexts_; }
    const detail::ContextStack& Contexts() const { return contexts_; }

    /// A scope of this thread opens on the current context, or one closes; see ContextStack.
    void PinCurrent() { contexts_.PinCurrent(); }
    void Unpin(detail::ContextState* state) { contexts_.Unpin(state); }

    /// The thread's scopes that are open and pin their context, the innermost last. One for which there is no
    /// memory is left out.
    void Enter(Scope* scope) noexcept {
        if (hasDepartures_.load(std::memory_order_relaxed)) [[unlikely]]
            NoteDepartures();
        if (scopes_.size() == scopes_.capacity() && !MakeRoom()) [[unlikely]]
            return;
        scopes_.push_back(scope);
    }
    void Leave(const Scope* scope) noexcept {
        if (!scopes_.empty() && scopes_.back() == scope) [[likely]] {
            scopes_.pop_back();
        } else {
            LeaveBelow(scope);
        }
    }
    /// The innermost open scope of the thread, or null.
    Scope* Innermost() noexcept {
        if (hasDepartures_.load(std::memory_order_relaxed)) [[unlikely]]
            NoteDepartures();
        return scopes_.empty() ? nullptr : scopes_.back();
    }

    /// All of them, the innermost last.
    const std::vector<Scope*>& OpenScopes() noexcept {
        Innermost();
        return scopes_;
    }

    /// Whether `scope` is the innermost one and pins `state` at the top of the stack.
    bool LeavesPlainly(const Scope* scope, const detail::ContextState* state) const noexcept {
        return !scopes_.empty() && scopes_.back() == scope && contexts_.PinsOnTop(state);
    }

    /// Names the record: never 0, and never the name of another one.
    std::uint64_t Serial() const { return serial_; }
    /// The generation of the manager that the record belongs to.
    std::uint64_t Generation() const { return generation_; }

    /// What ended on a thread that it doesn't belong to.
    struct Departure {
        const Scope* scope;             // closed, or null
        detail::ContextState* context;  // pinned no more, or null
    };
    /// Leaves a note for the record named `serial`, if its thread still runs.
    static void Depart(std::uint64_t serial, const Departure& departure) noexcept;

    /// Counts a mark that no output can show, as one without a context, if somebody is subscribed. Without
    /// a locked instruction; the core asks all records for the sum.
    void NoteLeftOut() noexcept;
    /// What the records of living threads that belong to `core` have counted so far.
    static std::uint64_t CountLeftOut(const detail::Core& core) noexcept;

    /// The manager's core, or null when there is no manager.
    const std::shared_ptr<detail::Core>& Core() const { return core_; }

    std::uint64_t componentId = 1;
    /// While set, the next scope that opens announces the thread's component.
    bool announceComponent = false;

  private:
    friend MetricsThreadContext* ThreadRecordSlow();

    void LeaveBelow(const Scope* scope) noexcept;
    bool MakeRoom() noexcept;
    void NoteDepartures() noexcept;
    void Adopt(std::shared_ptr<detail::Core> core, std::uint64_t generation);
    void HandOverLeftOut() noexcept;

    detail::ContextStack contexts_;
    std::vector<Scope*> scopes_;
    std::shared_ptr<detail::Core> core_;  // changed under the lock of the list of records
    std::uint64_t generation_ = 0;
    const std::uint64_t serial_;

    std::atomic<std::uint64_t> leftOut_{0};  // not yet handed over to the core

    std::atomic<bool> hasDepartures_{false};
    // Guarded by the lock of the list of records.
    std::vector<Departure> departures_;
    bool missedDepartures_ = false;  // there was no memory to note one
};

MetricsThreadContext* ThreadRecordSlow();

/// The calling thread's record, if it has one that knows the manager of now; otherwise null.
inline MetricsThreadContext* ReadyThreadRecord() {
    auto* record = static_cast<MetricsThreadContext*>(platform::ThreadValue());
    const auto generation = detail::managerGeneration.load(std::memory_order_relaxed);
    return record != nullptr && record->Generation() == generation ? record : nullptr;
}

/// The calling thread's record; null when the thread is ending or there is no memory for one.
inline MetricsThreadContext* ThreadRecord() {
    MetricsThreadContext* record = ReadyThreadRecord();
    return record != nullptr ? record : ThreadRecordSlow();
}

}  // namespace Metrics
