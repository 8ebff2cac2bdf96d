#include "tests/manager/model/QueueModel.h"

#include <algorithm>

namespace Metrics::Testing::Model {

namespace {
constexpr std::size_t kBatch = 2;
constexpr int kLastWorker = 100;
}  // namespace

void System::Log(std::vector<Event>& batch) {
    for (const Event& event : batch) delivered_.push_back(event.Number());
    batch.clear();
}

bool System::Cycle(int worker, detail::Cycle<Event, TinyTraits>& cycle) {
    std::vector<Event> batch;
    batch.reserve(kBatch);
    const std::lock_guard lock(dispatch);
    if (currentWorker != worker) return false;
    if (!cycle.Begin()) return true;
    while (cycle.MoreFollows()) {
        cycle.TakeBatch(batch, kBatch);
        Log(batch);
        dispatch.unlock();
        // A callback runs.
        dispatch.lock();
        if (currentWorker != worker) return false;
    }
    bound.Raise(cycle.Bound());
    queues.Commons().pool.Refill();
    return true;
}

void System::RunWorker(int worker, int cycles, std::uint64_t firstSecond) {
    detail::Cycle<Event, TinyTraits> cycle(queues);
    for (int i = 0; i < cycles; ++i) {
        if (!Cycle(worker, cycle)) return;
        if (firstSecond == 0) continue;
        const std::lock_guard lock(dispatch);
        if (currentWorker == worker) queues.Rest(firstSecond + 5 * static_cast<std::uint64_t>(i));
    }
}

void System::GiveUpWorker() {
    const std::lock_guard lock(dispatch);
    ++currentWorker;
}

void System::CheckCounts(Queues::Sums& before) {
    const Queues::Sums now = queues.Counts();
    Require(now.taken <= now.published, "more taken than published");
    Require(now.taken >= before.taken && now.published >= before.published, "counts went back");
    before = now;
}

void System::CheckAtEnd() {
    heap.mayFail = 0;
    currentWorker = kLastWorker;
    RunWorker(kLastWorker, 2, 1000);
    const Queues::Sums sums = queues.Counts();
    Require(sums.published == posted_.size(), "published: not what was posted");
    Require(sums.taken == delivered_.size(), "taken: not what was delivered");
    Require(std::set(delivered_.begin(), delivered_.end()).size() == delivered_.size(), "delivered twice");
    Require(delivered_.size() == posted_.size(), "lost");
    Require(queues.Size() == static_cast<std::size_t>(threads_ - left_), "a queue that was left is there");
    if (threads_ == left_) {
        Require(queues.Commons().backlog.Bytes() == 0, "a backlog of nothing");
        Require(queues.Commons().pool.Idle() == queues.Commons().pool.Ready(), "idle blocks are miscounted");
        Require(heap.Live() == queues.Commons().pool.Ready(), "memory is kept");
    }
    Require(queues.Commons().pool.Idle() <= TinyTraits::kMostIdle, "too much is idle");
    if (!Scheduler::Current().Failure().empty()) return;
    placeOf_.resize(posted_.size());
    for (std::size_t i = 0; i < delivered_.size(); ++i) placeOf_[static_cast<std::size_t>(delivered_[i])] = i;
    CheckThreads();
    CheckContexts();
}

void System::CheckThreads() {
    std::vector<int> next(64, 0);
    for (const int event : delivered_) {
        const auto& [thread, number] = posted_[static_cast<std::size_t>(event)];
        Require(number == next[thread]++, "a thread's order is broken");
    }
}

void System::CheckContexts() {
    const auto place = [this](int event) { return placeOf_[static_cast<std::size_t>(event)]; };
    for (const Context& context : contexts) {
        const bool sorted = std::is_sorted(context.events.begin(), context.events.end(),
                                           [&](int a, int b) { return place(a) < place(b); });
        Require(sorted, "a context's order is broken");
        if (context.parent < 0) continue;
        const Context& parent = contexts[static_cast<std::size_t>(context.parent)];
        for (const int event : context.events)
            Require(parent.closing < 0 || place(event) < place(parent.closing), "closed before its children");
    }
}

void Producer::CheckFinished() {
    const std::uint64_t stamp = system_.queues.Commons().stamps.Draw();
    if (!system_.bound.IsAbove(stamp)) return;
    for (const int event : mine_) {
        const auto& delivered = system_.delivered_;
        if (std::find(delivered.begin(), delivered.end(), event) == delivered.end())
            Scheduler::Current().Fail("not delivered below the bound");
    }
}

}  // namespace Metrics::Testing::Model
