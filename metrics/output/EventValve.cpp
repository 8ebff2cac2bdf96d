// Where roots share their targets: what is held when it becomes too much.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "metrics/output/EventRouter.h"

namespace Metrics::detail {

namespace {

std::size_t BytesHeld(const RootRecord& root) {
    std::size_t bytes = root.stream != nullptr ? root.stream->held.Bytes() : 0;
    for (const ContextRecord& record : root.records) bytes += record.waiting.Bytes();
    return bytes;
}

bool Waits(const RootRecord& root) {
    return root.waiting != 0 || (root.stream != nullptr && !root.stream->held.Empty());
}

}  // namespace

void EventRouter::SetHeldLimit(std::size_t bytes) {
    heldLimit_ = threshold_ = bytes;
}

// The largest root goes out in parts, then the next one. All are measured once, and somewhat more goes out
// than must, so that this is not done for each event.
void EventRouter::Relieve() {
    Audience* const audience = Foremost();
    if (audience == nullptr) return;
    if (sequencer_.InTurn()) LeaveTurns(*audience);
    std::vector<std::pair<std::size_t, std::uint64_t>> largest;
    for (const auto& [id, root] : sequencer_.Forest().Roots())
        if (const std::size_t bytes = BytesHeld(root); bytes != 0) largest.emplace_back(bytes, id);
    std::make_heap(largest.begin(), largest.end());
    const EventBlocks& blocks = sequencer_.Forest().Blocks();
    for (; blocks.Bytes() > Goal() && !largest.empty(); largest.pop_back()) {
        std::pop_heap(largest.begin(), largest.end());
        CutOut(*audience, sequencer_.FindRoot(largest.back().second));
    }
    threshold_ = std::max(heldLimit_, blocks.Bytes() + heldLimit_ / 8);
}

// What is behind a context that stays open cannot go out before it; so that one goes on by itself.
void EventRouter::CutOut(Audience& audience, RootRecord* root) {
    const EventBlocks& blocks = sequencer_.Forest().Blocks();
    if (root != nullptr) streams_->Cut(audience, *root);
    while (root != nullptr && root->waiting != 0 && blocks.Bytes() > Goal()) {
        RootRecord* own = nullptr;
        if (!sequencer_.SplitOff(*root, &own)) return;
        if (own != nullptr) streams_->SplitOff(audience, *root, *own);
        root = Serve(audience, root);
        if (root != nullptr) streams_->Cut(audience, *root);
    }
}

void EventRouter::LeaveTurns(Audience& audience) {
    RootRecord* const served = sequencer_.Served();
    if (served == nullptr) return;
    LogLeaving(*served);
    leftAt_ = served->id;
    sequencer_.LeaveTurns();
    streams_->Cut(audience, *served);
    ServeEach(audience);
}

void EventRouter::LogLeaving(const RootRecord& root) {
    std::size_t waiting = 0;
    for (const auto& [id, one] : sequencer_.Forest().Roots()) waiting += one.waiting;
    constexpr std::size_t kMiB = std::size_t{1} << 20;
    const std::string limit = heldLimit_ >= kMiB ? std::to_string(heldLimit_ / kMiB) + " MiB"
                                                 : std::to_string(heldLimit_) + " bytes";
    log_("MetricsOutput: more than " + limit + " wait: " + std::to_string(waiting) + " events, for context " +
         std::to_string(root.chain.back()) + " to close, which holds root " + std::to_string(root.id) +
         "; until nothing waits, roots are written in the order in which they end");
}

void EventRouter::TakeTurnsAgain() {
    const auto& roots = sequencer_.Forest().Roots();
    if (std::any_of(roots.begin(), roots.end(), [](const auto& entry) { return Waits(entry.second); }))
        return;
    sequencer_.TakeTurns(leftAt_);
}

}  // namespace Metrics::detail
