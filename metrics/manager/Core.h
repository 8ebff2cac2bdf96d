#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "metrics/MetricsManager.h"
#include "metrics/MetricsSignal.h"
#include "metrics/manager/Job.h"
#include "metrics/manager/MpscQueue.h"
#include "metrics/manager/PluginLink.h"
#include "metrics/manager/Process.h"
#include "metrics/manager/Progress.h"
#include "metrics/manager/Subscribers.h"
#include "metrics/platform/Platform.h"

namespace Metrics::detail {

class Worker;

using BatchCallback = MetricsManager::Callback;

/// What the manager is made of. It is shared by the manager, its workers, the records of threads, outputs and
/// every blocked call, so that none of them can lose it under its feet when the manager is freed.
///
/// Locks, in the order in which they are taken: lifecycle (start, stop and free, one at a time), dispatch
/// (the subscribers, the jobs, which worker is current), then those of the subscribers. The log delegate and
/// callbacks are called without any of them.
class Core : public std::enable_shared_from_this<Core> {
  public:
    Core();
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    /// The core of the process's manager, which is created if there is none.
    static std::shared_ptr<Core> Current();

    /// The process's part in a fork: its child gets a core of its own.
    static void StartOverInChild();
    /// A core for the child of a fork: the host's settings, but no worker, no subscribers, no events, and no
    /// lock that another thread of the parent may have held.
    std::shared_ptr<Core> CloneForChild() const;

    // --- Life
    // ------------------------------------------------------------------------------------------------
    void Start();
    void Shutdown();
    /// The manager goes away: its worker is told to stop and is not waited for.
    void Abandon();

    std::uint32_t State() const { return state_.load(std::memory_order_relaxed); }
    bool Is(std::uint32_t bits) const { return (State() & bits) != 0; }
    void ChangeState(std::uint32_t on, std::uint32_t off);
    /// True in the child of a fork for a core that came from the parent. Its locks must not be taken.
    bool Inherited() const { return forkDepth_ != ForkDepth(); }
    /// True when the calling thread is one of this core's workers.
    bool OnWorkerThread() const;

    // --- Events
    // ----------------------------------------------------------------------------------------------
    /// Appends an event to the queue, or drops it while there is no worker or no memory.
    void Post(MetricsEvent&& event) noexcept {
        if (!Is(MetricsManager::Running) || !queue_.TryPush(std::move(event))) CountDropped();
    }
    /// The same for an event that `build` makes in the queue, at the place that it is given.
    template <class Build>
    void PostBuilt(Build build) noexcept {
        if (!Is(MetricsManager::Running) || !queue_.TryBuild(build)) [[unlikely]]
            CountDropped();
    }
    void CountDropped() noexcept;
    /// Counts what no output can show. Any thread.
    void CountLeftOut(std::uint64_t count) noexcept { leftOut_.fetch_add(count, std::memory_order_relaxed); }
    bool HasSubscribers() const noexcept { return hasSubscribers_.load(std::memory_order_relaxed); }

    /// A change of mask or id base that another process made; applied by the worker.
    struct RemoteChange {
        MetricsEventType type;
        std::uint64_t first;
        std::uint64_t second;
    };
    void PostRemoteChange(const RemoteChange& change);

    /// Subscribes. `owned` by an object that unregisters; one that a Shutdown leaves without it is logged.
    /// While stopping the result has id 1 and no token.
    Registration Register(MetricsEventCategory category, BatchCallback callback, bool owned = true);
    /// Removes by id and token, as `Unsubscribe` does. Never throws.
    void Unregister(const Registration& registration) noexcept;
    void Unsubscribe(int id);

    /// Waits until everything that was posted before the call has been delivered, or no worker is left to do
    /// it. While `Collecting` is off only a cycle in progress counts. Returns at once on a worker thread.
    void WaitDelivered();
    bool WaitUntil(const std::function<bool()>& predicate, int timeoutMs);

    /// For a callback: whether another batch follows at once, so that what need not be done for each of them
    /// can wait for the last one. That may never come, when the worker is given up.
    bool MoreFollows() const;

    /// Runs a task on the worker, or here if there is none, under the dispatch lock; returns when it has run.
    /// False if it was dropped because the manager is stopping. What the task throws reaches the caller.
    bool ExecuteOnWorker(std::function<void()> task);

    // --- Settings
    // --------------------------------------------------------------------------------------------
    void SetThreadInitFunction(std::function<void()> function);
    std::shared_ptr<const std::function<void()>> ThreadInitFunction() const;
    void SetLogDelegate(std::function<void(const std::string&)> delegate);
    void Log(const std::string& message) noexcept;
    /// The same for an error. While no log delegate was ever set in this process its first error is a line on
    /// the error stream instead; never in the child of a fork.
    void LogError(const std::string& message) noexcept;
    /// Logs at most once for each kind of mistake that leaves the user with an empty file and no error.
    enum Hint : std::uint32_t {
        NotCollecting = 0x1,
        LostRegistration = 0x2,
        LateAttribute = 0x4,
        NoSuchRoot = 0x8,
        DamagedFilters = 0x10,
        UnknownMnemonic = 0x20,
        NoRowDefinition = 0x40,
        LateRowDefinition = 0x80,
        NoFileNames = 0x100,
        ContextZero = 0x200,
        UnseenContext = 0x400,
        ClosedOutput = 0x800,
        Misnested = 0x1000,
        CutText = 0x2000
    };
    void LogOnce(Hint hint, const std::string& message) noexcept;
    /// Logs once what is wrong with the file of filters, if anything is.
    void LogFilterError() noexcept;

    std::uint64_t ComponentId() const { return componentId_.load(std::memory_order_relaxed); }
    std::uint64_t SetComponentId(std::uint64_t id) {
        return componentId_.exchange(id, std::memory_order_relaxed);
    }
    std::uint64_t NextContextId();
    /// All ids up to this one have been given out.
    std::uint64_t LastContextId() const { return contextIds_.load(std::memory_order_relaxed); }
    MetricsStatistics Statistics() const;

    const std::map<std::string, MetricsValue>& Parameters() const { return parameters_; }

  private:
    friend class Worker;

    std::shared_ptr<Worker> LatestWorker();
    std::shared_ptr<Worker> ExchangeLatest(std::shared_ptr<Worker> worker);
    std::shared_ptr<Worker> CurrentWorker();
    void StopAndWait(const std::shared_ptr<Worker>& worker);
    /// Takes all out, to be destroyed where no lock is held.
    std::map<int, Subscribers::EntryPointer> RemoveSubscribers();
    void StartWorker();
    void ShutdownFromWorker();
    std::map<int, Subscribers::EntryPointer> StopWorker();
    void LogLostRegistrations();
    void NoteSubscribers() noexcept;
    void PostCategoryUnion();
    template <class Remove>
    void RemoveSubscription(Remove remove);
    void WaitNotRunning(std::uint64_t token);
    std::exception_ptr RunQueuedJobs();
    void ApplyRemoteChanges();
    void ApplyRemoteChange(const RemoteChange& change);

    // What every mark reads and hardly anything writes stands together, apart from the counters.
    const std::uint64_t forkDepth_;
    std::atomic<std::uint32_t> state_{0};
    std::atomic<std::uint64_t> componentId_{1};
    std::atomic<bool> hasSubscribers_{false};
    MpscQueue<MetricsEvent> queue_;

    alignas(64) std::atomic<std::uint64_t> contextIds_{0};
    std::atomic<std::uint64_t> idBaseExtra_{0};  // the second word that an id base brings along
    std::atomic<std::uint64_t> dropped_{0};
    std::atomic<std::uint64_t> leftOut_{0};  // besides what the records of threads count

    std::mutex lifecycle_;
    platform::RecursiveMutex dispatch_;
    std::atomic<int> dispatchWaiters_{0};
    MetricsSignal wake_;
    Progress progress_;

    // Guarded by the dispatch lock.
    Subscribers subscribers_;
    std::deque<std::shared_ptr<Job>> jobs_;
    std::shared_ptr<Worker> current_;  // the worker that delivers
    std::shared_ptr<Worker> latest_;   // the worker started last, until it leaves
    // Registrations that a Shutdown took from owners who have not noticed.
    std::vector<std::uint64_t> lost_;

    // Guarded by `settings_`; called as copies.
    mutable std::mutex settings_;
    std::shared_ptr<const std::function<void()>> threadInit_;
    std::shared_ptr<const std::function<void(const std::string&)>> logDelegate_;
    std::vector<RemoteChange> remoteChanges_;
    std::string workingDirectory_;
    std::atomic<bool> hasRemoteChanges_{false};
    std::atomic<std::uint32_t> hintsGiven_{0};

    // Counters of the worker.
    std::atomic<std::uint64_t> delivered_{0};
    std::atomic<std::uint64_t> batches_{0};
    std::atomic<std::uint64_t> largestBatch_{0};

    std::map<std::string, MetricsValue> parameters_;
    ConnectionDefaults connection_;
    std::unique_ptr<PluginLink> plugin_;  // guarded by the lifecycle mutex
};

}  // namespace Metrics::detail
