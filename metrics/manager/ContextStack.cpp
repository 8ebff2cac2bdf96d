#include "metrics/manager/ContextStack.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <optional>
#include <utility>

namespace Metrics::detail {

namespace {

constinit std::atomic<std::uint64_t> leftBehindSoFar{0};

}  // namespace

constinit ProcessorClock processorClock = &platform::ThreadProcessorTime;

void NoteContextLeftBehind() noexcept {
    leftBehindSoFar.fetch_add(1, std::memory_order_release);
}

// The thread's clock, read at most once in the course of a change.
class ContextStack::Clock {
  public:
    const Times& Now() {
        if (!now_) {
            const platform::ProcessorTime now = processorClock();
            now_ = Times{now.total, now.user};
        }
        return *now_;
    }

  private:
    std::optional<Times> now_;
};

ContextStack::~ContextStack() {
    Clear();
    for (const Entry& entry : pinned_) Release(entry.state);
}

ContextStack::Iterator ContextStack::IteratorOf(const ContextState* state) {
    const auto it = std::find_if(entries_.rbegin(), entries_.rend(),
                                 [state](const Entry& e) { return e.state == state; });
    return it == entries_.rend() ? entries_.end() : std::prev(it.base());
}

// Who asks may only know the address of something that is long freed; the id tells it from a later one there.
bool ContextStack::Holds(const ContextState* state, std::uint64_t id) const {
    return std::any_of(entries_.begin(), entries_.end(),
                       [=](const Entry& e) { return e.state == state && e.state->id == id; });
}

ContextStack::Place ContextStack::Find(const ContextState* state) const {
    const auto it =
        std::find_if(entries_.begin(), entries_.end(), [state](const Entry& e) { return e.state == state; });
    if (it == entries_.end()) return {};
    const auto above = std::next(it);
    return {true, static_cast<std::size_t>(it - entries_.begin()),
            above == entries_.end() ? nullptr : above->state};
}

// The entry as it stood, with its scopes; else a new one.
ContextStack::Entry ContextStack::Extract(ContextState* state) noexcept {
    const auto it = IteratorOf(state);
    if (it == entries_.end()) {
        Retain(state);
        return {state};
    }
    const Entry entry = *it;
    entries_.erase(it);
    return entry;
}

void ContextStack::Take(ContextState* state) {
    if (entries_.size() == entries_.capacity()) entries_.reserve(2 * entries_.size() + 8);
    const std::size_t before = entries_.size();
    const Entry entry = Extract(state);
    const ContextState* covered = entries_.empty() ? nullptr : entries_.back().state;
    entries_.push_back(entry);
    if (covered != nullptr && covered->IsAlive())
        state->enabled.store(covered->IsEnabled(), std::memory_order_relaxed);
    const bool isNew = entries_.size() > before;
    const bool onParent = isNew && covered != nullptr && covered->id == state->parentId;
    Clock clock;
    Changed(clock, !DropDead(clock) && onParent);
}

// Dead entries go first, so that none that was covered becomes current.
void ContextStack::Leave(ContextState* state, const Place& back) noexcept {
    Clock clock;
    bool onlyChild = !DropDead(clock) && state == current_ && !back.isOnStack;
    if (back.isOnStack) {
        PutBack(state, back);
    } else if (const auto it = IteratorOf(state); it != entries_.end()) {
        const std::uint64_t parentId = state->parentId;
        Drop(*it, clock);
        entries_.erase(it);
        onlyChild = onlyChild && !entries_.empty() && entries_.back().state->id == parentId;
    }
    Changed(clock, onlyChild);
}

// Without memory it stays away.
void ContextStack::PutBack(ContextState* state, const Place& back) noexcept {
    const Entry entry = Extract(state);
    auto it = std::find_if(entries_.begin(), entries_.end(),
                           [&back](const Entry& e) { return e.state == back.above; });
    if (it == entries_.end()) {
        it = entries_.begin() + static_cast<std::ptrdiff_t>(std::min(back.index, entries_.size()));
    }
    try {
        entries_.insert(it, entry);
    } catch (const std::bad_alloc&) {
        Release(state);
    }
}

void ContextStack::Clear() noexcept {
    Clock clock;
    for (Entry& entry : entries_) Drop(entry, clock);
    entries_.clear();
    current_ = nullptr;
}

// What the entry stands for ends, but for the scopes that are open on it.
void ContextStack::Drop(Entry& entry, Clock& clock) noexcept {
    entry.leads = false;
    StartOrStop(entry, clock);
    if (entry.openScopes == 0) return Release(entry.state);
    try {
        pinned_.push_back(entry);
    } catch (const std::bad_alloc&) {
        // Open scopes still refer to the state: rather keep it for ever than free it under them.
    }
}

// The end of every change. One that only put a child on its parent, or took it off, changes nothing for those
// below.
void ContextStack::Changed(Clock& clock, bool onlyChild) noexcept {
    current_ = entries_.empty() ? nullptr : entries_.back().state;
    if (current_ == nullptr) return;
    if (onlyChild) {
        entries_.back().leads = true;
        StartOrStop(entries_.back(), clock);
    } else {
        MarkLeading();
        for (Entry& entry : entries_) StartOrStop(entry, clock);
    }
}

// Entries of contexts that were destroyed elsewhere go, but for the one at the top. Usually there are none,
// and nobody has to look. True if there were.
bool ContextStack::DropDead(Clock& clock) noexcept {
    const std::uint64_t soFar = leftBehindSoFar.load(std::memory_order_acquire);
    if (soFar == leftBehind_ || entries_.empty()) return false;
    if (entries_.back().state->IsAlive()) leftBehind_ = soFar;  // else it will be looked for again
    const auto top = std::prev(entries_.end());
    const auto dead = std::stable_partition(entries_.begin(), top,
                                            [](const Entry& entry) { return entry.state->IsAlive(); });
    for (auto it = dead; it != top; ++it) Drop(*it, clock);
    const bool any = dead != top;
    entries_.erase(dead, top);
    return any;
}

// From the current context to its parent, and on from there. A parent mostly stands right below.
void ContextStack::MarkLeading() noexcept {
    for (Entry& entry : entries_) entry.leads = false;
    auto child = entries_.rbegin();
    while (child != entries_.rend() && !child->leads) {
        child->leads = true;
        const std::uint64_t parentId = child->state->parentId;
        if (parentId == 0) return;
        const auto isParent = [parentId](const Entry& entry) { return entry.state->id == parentId; };
        auto parent = std::find_if(child, entries_.rend(), isParent);
        if (parent == entries_.rend()) parent = std::find_if(entries_.rbegin(), child, isParent);
        child = parent == child ? entries_.rend() : parent;
    }
}

void ContextStack::UnpinBelow(ContextState* state) {
    for (auto it = entries_.rbegin(); it != entries_.rend(); ++it) {
        if (it->state == state && it->openScopes > 0) {
            --it->openScopes;
            return;
        }
    }
    for (auto it = pinned_.begin(); it != pinned_.end(); ++it) {
        if (it->state != state) continue;
        if (--it->openScopes == 0) {
            pinned_.erase(it);
            Release(state);
        }
        return;
    }
}

void ContextStack::StartOrStop(Entry& entry, Clock& clock) noexcept {
    const bool measured = entry.state->measuredScopes.load(std::memory_order_relaxed) != 0;
    const bool runs = entry.leads && measured;
    if (runs == entry.runs) return;
    if (runs) {
        entry.since = clock.Now();
        entry.measuredRun = entry.state->measuredRun.load(std::memory_order_relaxed);
    } else if (measured) {
        Charge(entry, clock.Now());
    }
    entry.runs = runs;
}

// What was spent while all scopes were closed meanwhile, on another thread, is nobody's any more.
void ContextStack::Charge(Entry& entry, const Times& now) noexcept {
    ContextState& context = *entry.state;
    const std::uint32_t run = context.measuredRun.load(std::memory_order_relaxed);
    if (run == std::exchange(entry.measuredRun, run)) {
        context.processorSpent.fetch_add(std::max(now.processor - entry.since.processor, 0.0),
                                         std::memory_order_relaxed);
        context.userSpent.fetch_add(std::max(now.user - entry.since.user, 0.0), std::memory_order_relaxed);
    }
    entry.since = now;
}

// What the context's own clock shows.
MetricsTimeStack::Times ContextStack::Spent(ContextState& context, Clock& clock) noexcept {
    const auto it = IteratorOf(&context);
    if (it != entries_.end() && it->runs) Charge(*it, clock.Now());
    return {context.processorSpent.load(std::memory_order_relaxed),
            context.userSpent.load(std::memory_order_relaxed)};
}

void ContextStack::NoteMeasured(ContextState& context, Clock& clock) noexcept {
    const auto measured = static_cast<std::uint32_t>(context.timeStack.measured_.size());
    const bool begins = measured != 0 && context.measuredScopes.load(std::memory_order_relaxed) == 0;
    if (begins)
        context.measuredRun.store(context.measuredRun.load(std::memory_order_relaxed) + 1,
                                  std::memory_order_relaxed);
    context.measuredScopes.store(measured, std::memory_order_relaxed);
    if (const auto it = IteratorOf(&context); it != entries_.end()) StartOrStop(*it, clock);
}

std::uint64_t ContextStack::StartMeasuring(ContextState& context, bool fromBirth) {
    Clock clock;
    context.timeStack.Start(fromBirth ? Times{0, 0} : Spent(context, clock));
    NoteMeasured(context, clock);
    return context.timeStack.lastId_;
}

ContextStack::Figures ContextStack::StopMeasuring(ContextState& context, std::uint64_t entry) noexcept {
    Clock clock;
    const Times now = Spent(context, clock);
    MetricsTimeStack& stack = context.timeStack;
    if (entry == 0) {
        stack.Update(now);
        return {stack.Top(), stack.TopExclusive()};
    }
    const auto figures = stack.Stop(entry, now);
    NoteMeasured(context, clock);
    return figures;
}

}  // namespace Metrics::detail
