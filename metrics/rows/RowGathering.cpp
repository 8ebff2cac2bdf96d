// When a row is made, where it waits and when it is written.
#include <algorithm>
#include <utility>

#include "metrics/rows/RowEngine.h"

namespace Metrics::detail {

RowEngine::Arrival RowEngine::ArrivalOf(int node, const BringRef& bring) {
    const PatternNode& pattern = Node(node);
    const Joint& joint = JointAt(pattern.joint);
    const std::uint32_t level = bring->level - static_cast<std::uint32_t>(pattern.depth - joint.depth);
    return {node, pattern.joint, joint.branchOf[pattern.operands.front()], &bring,
            &GatherAt(pattern.joint, level)};
}

// All that one element brings comes at once: rows of what came before it hold none of it.
void RowEngine::DeliverArrivals(std::span<const Arrival> arrivals) {
    for (const Arrival& arrival : arrivals) MakeRowBefore(arrival);
    for (const auto& [node, joint, branch, bring, gather] : arrivals) {
        gather->pending[static_cast<std::size_t>(branch)] = *bring;
        gather->pendingNode[static_cast<std::size_t>(branch)] = node;
        for (const std::uint32_t operand : Node(node).operands) gather->last[operand] = *bring;
    }
    for (const Arrival& arrival : arrivals) {
        if (!arrival.gather->waiting.empty()) OfferToWaiting(arrival.joint, *arrival.gather, arrival.branch);
    }
    arrivals_.clear();
}

void RowEngine::MakeRowBefore(const Arrival& arrival) {
    const BringRef& last = arrival.gather->pending[static_cast<std::size_t>(arrival.branch)];
    if (!last || last->used) return;
    MarkArriving(true);
    MakeRow(arrival.joint, *arrival.gather, Moment::BroughtAgain);
    MarkArriving(false);
}

void RowEngine::MarkArriving(bool isArriving) {
    for (const int source : Innermost().state->sources)
        EntriesOf(open_, source).back().bring->isArriving = isArriving;
}

Gather* RowEngine::FindGather(int joint, std::uint32_t level) const {
    const auto& stack = gathers_[static_cast<std::size_t>(joint)];
    // Those further in than what closes now are no more than the longest path.
    const auto found = std::find_if(stack.rbegin(), stack.rend(),
                                    [&](const auto& gather) { return gather->level <= level; });
    return found != stack.rend() && (*found)->level == level ? found->get() : nullptr;
}

Gather& RowEngine::OpenGather(int joint, std::uint32_t level) {
    auto& stack = gathers_[static_cast<std::size_t>(joint)];
    std::unique_ptr<Gather> gather;
    if (spareGathers_.empty()) {
        gather = std::make_unique<Gather>();
    } else {
        gather = std::move(spareGathers_.back());
        spareGathers_.pop_back();
    }
    gather->Reset(level, row_.operands.size(), static_cast<std::size_t>(JointAt(joint).branches));
    auto place = stack.end();
    while (place != stack.begin() && (*std::prev(place))->level > level) --place;
    return **stack.insert(place, std::move(gather));
}

// Moves into the row what no row has been made of yet.
void RowEngine::TakePending(Gather& gather, Row& row) const {
    for (std::size_t branch = 0; branch < gather.pending.size(); ++branch) {
        const BringRef bring = std::exchange(gather.pending[branch], {});
        if (!bring) continue;
        const int node = gather.pendingNode[branch];
        for (const std::uint32_t operand : Node(node).operands) {
            // Of "*" the attribute may be had from an element around.
            const bool isAbsent =
                bring->fields[row_.operands[operand].field].state == Bring::FieldState::Absent;
            if (node == kRoot && isAbsent) continue;
            row.cells[operand].bring = bring;
            row.cells[operand].own = true;
        }
    }
}

void RowEngine::MakeRow(int joint, Gather& gather, Moment moment) {
    Row& row = making_;
    row.Reset(joint, gather.level, row_.operands.size());
    TakePending(gather, row);
    if (!HoldsUnused(row)) return;
    if (Complete(joint, gather, row)) {
        Write(row);
    } else if (moment == Moment::Closing) {
        HandUp(joint, row);
    } else if (gather.level == 0) {
        Conclude(row);
    } else {
        Wait(joint, gather, row);
    }
}

void RowEngine::Wait(int joint, Gather& gather, Row& row) {
    const std::uint64_t age = gather.nextAge++;
    const Joint& at = JointAt(joint);
    for (std::size_t branch = 0; branch < at.operandsOf.size() && !row.isOutranked; ++branch)
        if (!IsSetAny(row, at.operandsOf[branch])) gather.lackBranch[branch].insert(age);
    gather.waiting.emplace(age, std::move(row));
    if (gather.waiting.size() <= limits_.waitingRows) return;
    HoldsWaiting(gather);
    if (gather.waiting.size() <= limits_.waitingRows) return;
    NoteWaiting(gather.level, at.node);
    const auto oldest = gather.waiting.begin();
    Row gone = std::move(oldest->second);
    Forget(gather, oldest);
    HandUp(joint, gone);
}

void RowEngine::Forget(Gather& gather, Gather::Waiting::iterator row) {
    for (auto& rows : gather.lackBranch) rows.erase(row->first);
    gather.waiting.erase(row);
}

// Whether rows wait in it: what they held may all be in rows that have been written since.
bool RowEngine::HoldsWaiting(Gather& gather) {
    while (!gather.waiting.empty() && !HoldsUnused(gather.waiting.begin()->second))
        Forget(gather, gather.waiting.begin());
    return !gather.waiting.empty();
}

void RowEngine::NoteWaiting(std::size_t level, int node) {
    notices_.Add(RowLimit::WaitingRows, frames_[level].number, [&] {
        return "more than " + std::to_string(limits_.waitingRows) + " rows wait in " +
               Describe(frames_[level], node) + ": the oldest go without what they wait for";
    });
}

// Each waiting row takes the first that comes of a branch it has nothing of.
void RowEngine::OfferToWaiting(int joint, Gather& gather, int branch) {
    const Joint& at = JointAt(joint);
    const auto slot = static_cast<std::size_t>(branch);
    const auto takers = std::move(gather.lackBranch[slot]);
    gather.lackBranch[slot].clear();
    for (const std::uint64_t age : takers) {
        const auto waiting = gather.waiting.find(age);
        Row& row = waiting->second;
        const bool isLive = HoldsUnused(row);
        if (isLive) {
            for (const std::uint32_t operand : at.operandsOf[slot])
                if (gather.last[operand]) row.cells[operand] = {gather.last[operand], true, false};
            if (!at.labels.empty()) PreferAround(at, row);
            if (!LacksNothing(row)) continue;
            Write(row);
        }
        Forget(gather, waiting);
    }
}

// To the enclosing element of the next joint up the pattern.
void RowEngine::HandUp(int joint, Row& row) {
    if (!HoldsUnused(row)) return;
    const int upper = JointAt(joint).parent;
    if (upper == kNone) return Conclude(row);
    const std::uint32_t level =
        row.level - static_cast<std::uint32_t>(JointAt(joint).depth - JointAt(upper).depth);
    if (level == 0) return Conclude(row);
    row.level = level;
    Arrive(upper, GatherAt(upper, level), row, JointAt(joint).branchInParent);
}

void RowEngine::Arrive(int joint, Gather& gather, Row& row, int branch) {
    const Joint& at = JointAt(joint);
    for (const std::uint32_t operand : at.operandsOf[static_cast<std::size_t>(branch)])
        gather.last[operand] = row.cells[operand].bring;
    if (!gather.waiting.empty()) OfferToWaiting(joint, gather, branch);
    if (!HoldsUnused(row)) return;
    if (Complete(joint, gather, row)) {
        Write(row);
    } else {
        Wait(joint, gather, row);
    }
}

void RowEngine::CloseGather(int joint, std::uint32_t level) {
    auto& stack = gathers_[static_cast<std::size_t>(joint)];
    if (stack.empty() || stack.back()->level != level) return;
    const std::unique_ptr<Gather>& gather = stack.back();
    while (!gather->waiting.empty()) {
        Row row = std::move(gather->waiting.begin()->second);
        gather->waiting.erase(gather->waiting.begin());
        if (!HoldsUnused(row)) continue;
        if (Complete(joint, *gather, row)) {
            Write(row);
        } else {
            HandUp(joint, row);
        }
    }
    MakeRow(joint, *gather, Moment::Closing);
    gather->Clear();
    spareGathers_.push_back(std::move(stack.back()));
    stack.pop_back();
}

// There is nobody left to complete it: with all that is required it is written, else it is dropped.
void RowEngine::Conclude(Row& row) {
    if (!LacksRequired(row)) {
        Write(row);
    } else if (awaitsEnds_) {
        Park(row);
    }
}

bool RowEngine::HoldsLost(const Row& row) const {
    for (std::size_t operand = 0; operand < row.cells.size(); ++operand) {
        const BringRef& bring = row.cells[operand].bring;
        const auto field = row_.operands[operand].field;
        if (bring && bring->fields[field].state == Bring::FieldState::Lost) return true;
    }
    return false;
}

void RowEngine::Write(Row& row) {
    if (!HoldsUnused(row)) return;
    if (!anyLost_ || !HoldsLost(row)) receiver_.OnRow(RowView(row_, row), lastNumber_);
    for (const Cell& cell : row.cells)
        if (cell.bring) cell.bring->used = true;
}

}  // namespace Metrics::detail
