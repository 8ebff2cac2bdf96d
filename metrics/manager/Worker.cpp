#include "metrics/manager/Worker.h"

#include <algorithm>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "metrics/Gate.h"
#include "metrics/manager/Core.h"

namespace Metrics::detail {

namespace {

// A batch is so small that it is still in the cache of this core when its subscribers read it.
constexpr std::size_t kBatch = 2048;
// Events that the worker may add to a cycle's last batch.
constexpr std::size_t kSynthetic = 2;
// A cycle of this many events is wanted under load, which pays for waking up and for flushing what it
// touched. The wait between two cycles adapts to it.
constexpr std::size_t kWantedCycle = 65536;
// A cycle of fewer events tells nothing of what the worker can do.
constexpr std::size_t kTellingCycle = 1024;
// What waits may take the worker about a tenth of a second; beyond that those who post are slowed.
constexpr double kCrowdSeconds = 0.1;
constexpr double kSmallestCrowd = 16384;
constexpr double kLargestCrowd = 1048576;  // 64 MiB
constexpr std::int64_t kLongestWaitMs = 1000;
constexpr std::int64_t kShortestWaitMs = 5;

constinit thread_local Worker* workerOfThisThread = nullptr;

}  // namespace

Worker::Worker(std::shared_ptr<Core> core) : core_(std::move(core)) {}

Worker* Worker::OfThisThread() {
    return workerOfThisThread;
}

void Worker::Launch(std::shared_ptr<Worker> worker) {
    const platform::SignalBlocker blocker;
    platform::StartThread([worker = std::move(worker)] { worker->Run(); });
}

void Worker::Run() {
    workerOfThisThread = this;
    platform::SetCurrentThreadName("metrics");
    try {
        thread_ = platform::ThreadHandle::Current();
        started_ = true;
        batch_.reserve(kBatch + kSynthetic);
        if (const auto init = core_->ThreadInitFunction(); init && *init) (*init)();
    } catch (...) {
        initFailure_ = std::current_exception();
    }
    if (!initFailure_ && !core_->Inherited()) {
        try {
            Enter();
            Loop();
        } catch (const std::exception& error) {
            core_->Log(std::string("MetricsManager: the worker ends: ") + error.what());
        } catch (...) {
            core_->Log("MetricsManager: the worker ends: unknown exception");
        }
    }
    if (!core_->Inherited()) Leave();
    workerOfThisThread = nullptr;
}

void Worker::Enter() {
    {
        const std::lock_guard lock(core_->dispatch_);
        core_->current_ = core_->latest_;
        core_->ChangeState(MetricsManager::Running, MetricsManager::Stopping);
        entered_ = true;
    }
    core_->progress_.Notify();
}

void Worker::Leave() {
    {
        const std::lock_guard lock(core_->dispatch_);
        if (core_->latest_.get() == this) {
            core_->ChangeState(0, MetricsManager::Running | MetricsManager::Stopping);
            core_->latest_.reset();  // or core and worker would keep each other
        }
        if (core_->current_.get() == this) core_->current_.reset();
        left_ = true;
    }
    core_->wake_.set();
    core_->progress_.Notify();
}

void Worker::Loop() {
    bool mayWait = true;
    for (;;) {
        if (mayWait && !stop_) core_->wake_.wait(NextWait());
        const bool last = stop_;
        if (!Cycle()) return;
        delivered_ = begun_.load();
        core_->progress_.Notify();
        if (last) return;
        mayWait = !core_->Is(MetricsManager::Collecting) || core_->queue_.Size() == 0;
        // The lock isn't fair, and under load this thread would take it again at once.
        if (core_->dispatchWaiters_ > 0) std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
}

// As long as it takes for a cycle of the wanted size to come together at the pace of the last ones.
int Worker::NextWait() const {
    if (taken_ == 0) return kLongestWaitMs;
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(interval_).count();
    const auto wanted = ms * static_cast<std::int64_t>(kWantedCycle) / static_cast<std::int64_t>(taken_);
    return static_cast<int>(std::clamp<std::int64_t>(wanted, kShortestWaitMs, kLongestWaitMs));
}

// One cycle; false when the worker was given up and must touch nothing more.
bool Worker::Cycle() {
    ++begun_;
    interval_ = std::chrono::steady_clock::now() - std::exchange(start_, std::chrono::steady_clock::now());
    std::unique_lock lock(core_->dispatch_);
    if (core_->current_.get() != this) return false;
    // Read once: a subscriber is told of a change no sooner than the cycle acts on it.
    state_ = core_->State();
    const bool collecting = (state_ & MetricsManager::Collecting) != 0;
    taken_ = ahead_ = collecting ? core_->queue_.Size() : 0;
    if (collecting) core_->ApplyRemoteChanges();
    std::exception_ptr failure = core_->RunQueuedJobs();
    const bool goesOn = DeliverCycle(lock, failure);
    if (core_->Inherited()) return false;
    NotePace();
    // A task or a callback that throws ends the worker, but not before the events of its cycle have been
    // delivered.
    if (failure) std::rethrow_exception(failure);
    return goesOn;
}

void Worker::NotePace() {
    if (taken_ < kTellingCycle) return;
    const std::chrono::duration<double> busy = std::chrono::steady_clock::now() - start_;
    const double crowd = static_cast<double>(taken_) / std::max(busy.count(), 1e-6) * kCrowdSeconds;
    core_->queue_.SetCrowd(static_cast<std::size_t>(std::clamp(crowd, kSmallestCrowd, kLargestCrowd)));
}

// Delivers what was in the queue when the cycle began, in batches. False when the worker must touch nothing
// more; what it had not taken by then is still in the queue.
bool Worker::DeliverCycle(std::unique_lock<platform::RecursiveMutex>& lock, std::exception_ptr& failure) {
    do {
        TakeBatch();
        if (ahead_ == 0) AppendSynthetic();
        if (!batch_.empty() && !Deliver(lock, failure)) return false;
    } while (ahead_ > 0);
    return true;
}

void Worker::TakeBatch() {
    const std::size_t count = std::min(ahead_, kBatch);
    batch_.clear();
    core_->queue_.Drain(batch_, count);
    core_->delivered_.fetch_add(count, std::memory_order_relaxed);
    ahead_ -= count;
}

void Worker::AppendSynthetic() {
    const auto mask = enableMask.load(std::memory_order_relaxed);
    if (lastMask_ != mask) {
        batch_.emplace_back(MetricsEventType::BitsChanged);
        lastMask_ = mask;
    }
    if (lastState_ != state_) {
        batch_.emplace_back(MetricsEventType::StateChanged);
        lastState_ = state_;
    }
}

// Hands the batch to every subscriber, also after one that throws.
bool Worker::Deliver(std::unique_lock<platform::RecursiveMutex>& lock, std::exception_ptr& failure) {
    core_->batches_.fetch_add(1, std::memory_order_relaxed);
    if (batch_.size() > core_->largestBatch_) core_->largestBatch_ = batch_.size();
    auto [id, entry] = core_->subscribers_.After(0);
    while (entry) {
        callbackToken_ = entry->token;
        core_->subscribers_.BeginCall(callbackToken_, core_->current_);
        lock.unlock();
        try {
            entry->callback(batch_);
        } catch (...) {
            if (!failure) failure = std::current_exception();
        }
        entry.reset();
        if (core_->Inherited()) return false;
        lock.lock();
        core_->subscribers_.EndCall(std::exchange(callbackToken_, 0), this);
        if (core_->current_.get() != this) {
            core_->progress_.Notify();
            return false;
        }
        std::tie(id, entry) = core_->subscribers_.After(id);
    }
    return true;
}

}  // namespace Metrics::detail
