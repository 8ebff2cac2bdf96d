// What other threads ask of a core's worker: subscriptions, tasks, and waiting for delivery.
#include <algorithm>

#include "metrics/manager/Core.h"
#include "metrics/manager/EventBuilder.h"
#include "metrics/manager/Worker.h"

namespace Metrics::detail {

Registration Core::Register(MetricsEventCategory category, BatchCallback callback, bool owned) {
    Registration registration{1, 0};
    ExecuteOnWorker([&] {
        registration = subscribers_.Add(category, std::move(callback), owned);
        PostCategoryUnion();
    });
    return registration;
}

void Core::Unsubscribe(int id) {
    RemoveSubscription([this, id] { return subscribers_.Remove(id); });
}

void Core::Unregister(const Registration& registration) noexcept {
    try {
        RemoveSubscription([this, &registration] {
            std::erase(lost_, registration.token);
            return subscribers_.Remove(registration);
        });
        WaitNotRunning(registration.token);
    } catch (...) {
        // Only memory can be short here; then the registration stays, and its owner's callback does nothing.
    }
}

template <class Remove>
void Core::RemoveSubscription(Remove remove) {
    Subscribers::EntryPointer removed;
    const auto task = [&] {
        removed = remove();
        PostCategoryUnion();
    };
    if (!ExecuteOnWorker(task)) {
        const std::lock_guard lock(dispatch_);
        task();
    }
    if (removed) WaitNotRunning(removed->token);
}

// Waits for a callback that began before its entry was removed. Not for one that the calling thread is in.
void Core::WaitNotRunning(std::uint64_t token) {
    if (OnWorkerThread() && Worker::OfThisThread()->CallbackToken() == token) return;
    for (;;) {
        {
            const std::lock_guard lock(dispatch_);
            if (!subscribers_.IsRunning(token)) return;
        }
        progress_.WaitSlice(Progress::Clock::now() + Progress::kSlice);
    }
}

// Under the dispatch lock, after each change.
void Core::NoteSubscribers() noexcept {
    hasSubscribers_.store(!subscribers_.IsEmpty(), std::memory_order_relaxed);
}

void Core::PostCategoryUnion() {
    NoteSubscribers();
    MetricsEvent event(MetricsEventType::CategoryUnion);
    event.param1 = subscribers_.CategoryUnion();
    Post(std::move(event));
}

bool Core::ExecuteOnWorker(std::function<void()> task) {
    ++dispatchWaiters_;
    std::unique_lock lock(dispatch_);
    --dispatchWaiters_;
    if (OnWorkerThread()) {
        task();
        return true;
    }
    if (Is(MetricsManager::Stopping)) return false;
    const std::shared_ptr<Worker> worker = current_;
    if (!worker) {
        task();
        return true;
    }
    const auto job = std::make_shared<Job>(std::move(task));
    jobs_.push_back(job);
    lock.unlock();
    wake_.set();
    progress_.Wait([&] { return job->Done() || worker->HasLeft() || worker->IsGivenUp(); });
    if (job->Claim()) {
        lock.lock();
        std::erase(jobs_, job);
        job->Run();
    } else {
        progress_.Wait([&] { return job->Done() || worker->IsDead(); });
    }
    if (job->Done() && job->Failure()) std::rethrow_exception(job->Failure());
    return true;
}

// Runs what waits, up to a job that throws: the owners of those behind it run them when they see the worker
// leave.
std::exception_ptr Core::RunQueuedJobs() {
    while (!jobs_.empty()) {
        const std::shared_ptr<Job> job = std::move(jobs_.front());
        jobs_.pop_front();
        if (!job->Claim()) continue;
        job->Run();
        progress_.Notify();
        if (job->Failure()) return job->Failure();
    }
    return nullptr;
}

void Core::WaitDelivered() {
    if (OnWorkerThread()) return;
    const std::shared_ptr<Worker> worker = CurrentWorker();
    if (!worker) return;
    // A cycle counts as begun before it empties the queue, so in this order nothing can be between the two.
    const bool empty = queue_.Size() == 0;
    std::uint64_t cycle = worker->Begun();
    if (empty && worker->Delivered() == cycle) return;
    if (Is(MetricsManager::Collecting)) ++cycle;
    wake_.set();
    progress_.Wait([&] { return worker->Delivered() >= cycle || worker->HasLeft() || worker->IsGivenUp(); });
}

bool Core::MoreFollows() const {
    return OnWorkerThread() && Worker::OfThisThread()->MoreFollows();
}

bool Core::WaitUntil(const std::function<bool()>& predicate, int timeoutMs) {
    using Clock = Progress::Clock;
    wake_.set();
    const auto start = Clock::now();
    const auto limit =
        timeoutMs == -1 ? Clock::time_point::max() : start + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (predicate()) return true;
        if (Clock::now() > limit) return false;
        progress_.WaitSlice(limit);
    }
}

}  // namespace Metrics::detail
