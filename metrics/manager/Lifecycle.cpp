// Starting, stopping and abandoning the worker of a core.
#include <chrono>
#include <thread>
#include <utility>

#include "metrics/manager/Core.h"
#include "metrics/manager/Worker.h"

namespace Metrics::detail {

namespace {

constexpr std::chrono::milliseconds kShutdownPatience{1000};

}  // namespace

void Core::Start() {
    if (Is(MetricsManager::Running) || OnWorkerThread()) return;
    {
        const std::lock_guard life(lifecycle_);
        if (Is(MetricsManager::Running)) return;
        StartWorker();
    }
    LogLostRegistrations();
}

void Core::StartWorker() {
    platform::PinLibrary();
    workingDirectory_ = platform::WorkingDirectory();
    const auto worker = std::make_shared<Worker>(shared_from_this());
    const auto before = ExchangeLatest(worker);
    try {
        Worker::Launch(worker);
    } catch (...) {
        ExchangeLatest(before);
        throw;
    }
    plugin_ = std::make_unique<PluginLink>();
    if (!plugin_->IsLoaded()) plugin_.reset();
    progress_.Wait([&] { return worker->HasEntered() || worker->HasLeft(); });
    if (!worker->HasLeft()) return;
    if (const std::exception_ptr failure = worker->TakeInitFailure()) std::rethrow_exception(failure);
}

void Core::Shutdown() {
    if (OnWorkerThread()) {
        ShutdownFromWorker();
    } else if (!Is(MetricsManager::Stopping)) {
        // What callbacks own may call the manager when it is destroyed: that happens after the lock.
        std::map<int, Subscribers::EntryPointer> removed;
        const std::lock_guard life(lifecycle_);
        removed = StopWorker();
    }
}

// Waits for nobody. The worker to stop is the last one started, which need not be the calling one.
void Core::ShutdownFromWorker() {
    std::map<int, Subscribers::EntryPointer> removed;
    const std::lock_guard lock(dispatch_);
    if (latest_) {
        latest_->Stop();
        ChangeState(MetricsManager::Stopping, 0);
    }
    removed = RemoveSubscribers();
}

std::map<int, Subscribers::EntryPointer> Core::StopWorker() {
    if (plugin_) {
        plugin_->Unload();
        plugin_.reset();
    }
    const std::shared_ptr<Worker> worker = LatestWorker();
    if (worker && !worker->HasLeft()) StopAndWait(worker);
    // A worker that left on its own meanwhile has not seen the stopping bit and does not clear it.
    const bool left = !worker || worker->HasLeft();
    const std::uint32_t off = MetricsManager::Running | (left ? MetricsManager::Stopping : 0U);
    std::map<int, Subscribers::EntryPointer> removed;
    if (!worker || !worker->IsDead()) removed = RemoveSubscribers();
    ChangeState(0, off);
    return removed;
}

void Core::StopAndWait(const std::shared_ptr<Worker>& worker) {
    const auto limit = Progress::Clock::now() + kShutdownPatience;
    state_.fetch_or(MetricsManager::Stopping);
    worker->Stop();
    wake_.set();
    progress_.Notify();
    progress_.WaitUntil(limit, [&] { return worker->HasLeft(); });
    // A thread that the system ends while it is still on its way out, because the process exits, can take a
    // lock of the C library with it.
    while (worker->HasLeft() && worker->IsThreadAlive() && Progress::Clock::now() < limit)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
}

void Core::Abandon() {
    std::unique_lock life(lifecycle_, std::defer_lock);
    // A worker must not wait for a thread that may be waiting for it.
    if (!OnWorkerThread()) life.lock();
    if (const auto worker = LatestWorker()) worker->Stop();
    wake_.set();
}

// Clears the map and takes the worker's part away: from here on it delivers nothing more.
std::map<int, Subscribers::EntryPointer> Core::RemoveSubscribers() {
    const std::lock_guard lock(dispatch_);
    auto removed = subscribers_.Clear();
    NoteSubscribers();
    for (const auto& [id, entry] : removed) {
        if (entry->owned) lost_.push_back(entry->token);
    }
    if (current_ && !OnWorkerThread()) {
        current_->GiveUp();
        current_.reset();
    }
    progress_.Notify();
    return removed;
}

std::shared_ptr<Worker> Core::ExchangeLatest(std::shared_ptr<Worker> worker) {
    const std::lock_guard lock(dispatch_);
    return std::exchange(latest_, std::move(worker));
}

std::shared_ptr<Worker> Core::LatestWorker() {
    const std::lock_guard lock(dispatch_);
    return latest_;
}

std::shared_ptr<Worker> Core::CurrentWorker() {
    const std::lock_guard lock(dispatch_);
    return current_;
}

void Core::LogLostRegistrations() {
    {
        const std::lock_guard lock(dispatch_);
        if (lost_.empty()) return;
    }
    LogOnce(
        LostRegistration,
        "MetricsManager Start: outputs or subscriptions made before Shutdown are still open; they receive "
        "nothing any more");
}

bool Core::OnWorkerThread() const {
    const Worker* worker = Worker::OfThisThread();
    return worker != nullptr && &worker->Owner() == this;
}

}  // namespace Metrics::detail
