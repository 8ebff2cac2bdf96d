#pragma once

#include <atomic>
#include <cstdint>

#include "metrics/MetricsTimeStack.h"

namespace Metrics {

class Context;

namespace detail {

inline constexpr std::uint32_t kAliveMagic = 0xABCDABCD;
inline constexpr std::uint32_t kDestroyedMagic = 0xDDDDDDDD;

/// What thread stacks and scopes know of a `Context`, and what outlives it: a context that was destroyed on
/// another thread leaves this behind with its id, marked as destroyed, so that nothing freed is ever read.
///
/// Counted: one reference by the `Context`, one by each stack entry and each guard. `birth`, the time
/// stack, `keepsValues` and `owner` belong to the one thread that uses the context at a time; the rest may be
/// looked at by a thread that was left with the entry.
struct ContextState {
    /// When the context was made by a factory, which its own scope counts from, and how that is opened. Not
    /// changed once other threads may know the state.
    struct Birth {
        void (*openScope)(Context&) = nullptr;  // null: made by a constructor
        double seconds = 0;                     // of the application
        std::uint64_t ticks = 0;                // of the calendar
    };

    ContextState(Context* context, std::uint64_t parent, std::uint64_t contextId, std::uint64_t bornIn)
        : enabled(contextId != 0), owner(context), parentId(parent), id(contextId), generation(bornIn) {}

    std::atomic<std::uint32_t> magic{kAliveMagic};
    std::atomic<std::uint32_t> references{1};
    std::atomic<std::uint32_t> threadId{0};  // of the thread it is attached to, 0 when it is not
    std::atomic<bool> enabled;
    std::atomic<bool> identified{false};  // its identification has been emitted and its own scope opened
    std::atomic<bool> closed{false};
    std::atomic<Context*> owner;  // null once destroyed
    const std::uint64_t parentId;
    const std::uint64_t id;
    const std::uint64_t generation;  // of the manager that gave the id; to another one it means nothing
    Birth birth;
    MetricsTimeStack timeStack;
    bool keepsValues = false;  // which wait until its own scope is the only open one

    // Kept by the stacks of the threads that work for it; see ContextStack.
    std::atomic<std::uint32_t> measuredScopes{0};  // how many of its open scopes are measured
    std::atomic<std::uint32_t> measuredRun{0};     // counts how often that went up from 0
    std::atomic<double> processorSpent{0};         // by threads that have left it or looked at their clock
    std::atomic<double> userSpent{0};

    bool IsAlive() const { return magic.load(std::memory_order_relaxed) == kAliveMagic; }
    bool IsEnabled() const { return enabled.load(std::memory_order_relaxed); }
    /// Whether a scope could open on it now.
    bool IsUsable() const { return id != 0 && IsEnabled(); }
};

inline void Retain(ContextState* state) {
    state->references.fetch_add(1, std::memory_order_relaxed);
}

inline void Release(ContextState* state) {
    if (state->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete state;
}

/// Something is about to be put under the context: if a factory made it, it stands in the output from here
/// on. On the thread that uses it.
inline void OpenOwnScope(ContextState* state) {
    if (state == nullptr || state->birth.openScope == nullptr) return;
    if (state->identified.load(std::memory_order_relaxed)) return;
    if (Context* owner = state->owner.load(std::memory_order_relaxed)) state->birth.openScope(*owner);
}

}  // namespace detail
}  // namespace Metrics
