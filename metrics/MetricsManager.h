#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "metrics/Export.h"
#include "metrics/MetricsEvent.h"
#include "metrics/MetricsValueBuffer.h"

namespace Metrics {

namespace detail {
class Core;
}

/// What a subscriber is interested in. The manager only publishes the union of all subscriptions (an event of
/// type `CategoryUnion`); every subscriber receives every batch.
enum class MetricsEventCategory : int {
    Events = 1,
};

/// Where an old client of the connection interface would stand. `GetConnectionStatus` returns none of them.
enum class MetricsConnectionStatus : int {
    Disconnected = 1,
    Connecting = 2,
    Connected = 3,
    Reconnecting = 4,
    LostConnection = 5,
};

/// A snapshot of the manager's counters. At a quiet moment `posted == delivered + queued`.
struct MetricsStatistics {
    std::uint64_t posted = 0;     ///< events accepted into the queue
    std::uint64_t delivered = 0;  ///< events taken from the queue and handed to whoever was subscribed
    std::uint64_t dropped = 0;    ///< events that came while no worker ran, or for which there was no memory
    std::uint64_t queued = 0;     ///< events that wait for the worker
    std::uint64_t batches = 0;    ///< batches handed to subscribers
    std::uint64_t largestBatch = 0;  ///< events in the largest of them
    /// What no output can show though somebody is subscribed: scopes and values without a context, values
    /// that their context had no place for, and contexts under a root that has ended. What reached an output
    /// before it had no place counts once for each output.
    std::uint64_t leftOut = 0;
};

/// The centre of the library: one per process, with one worker thread that takes the events which all threads
/// post and hands them, in batches, to the subscribers.
///
///     auto& manager = MetricsManager::GetInstance();
///     manager.Start();
///     manager.SetState(MetricsManager::Collecting, true);
///     int id = manager.Subscribe(MetricsEventCategory::Events, [](const std::vector<MetricsEvent>& batch) {
///     ... });
///     ...
///     manager.Unsubscribe(id);
///     manager.Shutdown();
///
/// Any thread may call any operation, unless said otherwise. A callback runs on the worker thread and without
/// any lock of the library; it may post events and call the manager. `Session` does start and stop in one
/// object.
class METRICS_API MetricsManager {
  public:
    /// Bits of the manager's state word.
    enum ManagerState : std::uint32_t {
        IdBaseSet = 0x01,      ///< a base for context ids was received from another process
        IdBasePending = 0x02,  ///< waiting for such a base; never set here
        Running = 0x10,        ///< a worker runs: events are accepted
        Stopping = 0x20,       ///< the worker is about to leave
        Collecting = 0x40,     ///< the host's switch: events are delivered and context ids are issued
    };

    using Callback = std::function<void(const std::vector<MetricsEvent>&)>;

    /// The manager of the process, created at the first call.
    static MetricsManager& GetInstance();

    /// Destroys the manager, if there is one, and every reference to it. Its worker is told to stop and not
    /// waited for; marks in flight are dropped. The next `GetInstance` makes a manager with default settings.
    static void FreeInstance();

    MetricsManager(const MetricsManager&) = delete;
    MetricsManager& operator=(const MetricsManager&) = delete;

    /// Starts the worker and returns when it runs; does nothing when one runs already, or on a worker thread.
    /// Throws what the thread-init function threw, or `std::system_error` when there is no thread to be had.
    void Start();

    /// Delivers what was posted before the call, stops the worker and removes all subscriptions. Waits for
    /// the worker for at most one second; a callback that takes longer finishes on its own, and what was not
    /// delivered by then stays queued for the next `Start`. (Closing an output, or a `Session`, waits for as
    /// long as delivery takes.) On a worker thread it waits for nobody. `Start` may follow.
    void Shutdown();

    /// Switches `Collecting`. Other bits belong to the library; they are ignored and that is logged.
    void SetState(ManagerState bits, bool on);

    /// The state word.
    std::uint32_t GetState() const;

    /// Polls `predicate` on the calling thread, at least every 100 ms, until it is true (returns true) or
    /// `timeoutMs` milliseconds have passed (returns false); -1 waits without limit. Nudges the worker first.
    /// Throws `std::bad_function_call` when the predicate is empty.
    bool WaitUntil(std::function<bool()> predicate, int timeoutMs) const;

    /// Runs on every worker thread before it does anything else; takes effect at the next `Start`.
    void SetThreadInitFunction(std::function<void()> function);

    /// Registers a callback for all events to come and returns its id: the smallest that is free, from 1.
    /// While the manager is stopping nothing is registered, and the result is 1.
    int Subscribe(MetricsEventCategory category, Callback callback);

    /// Removes a subscription. When it returns, the callback is not running and will not run again (from
    /// inside that very callback: it will not run again).
    void Unsubscribe(int id);

    /// Posts the events that another process wrote into `buffer`, with their context ids renumbered into this
    /// process; what belonged to no context there appears under the calling thread's current context. Throws
    /// `MetricsBufferError` for damaged bytes; what was decoded before them has been posted.
    void MergeRemoteEvents(std::shared_ptr<MetricsValueBuffer> buffer);

    /// Change the enable mask and return what it was. With `emit` the change itself is posted as an event.
    /// Concurrent changes from several threads may undo one another.
    unsigned long long SetBits(unsigned long long bits, bool emit);
    unsigned long long SetBitsAbsolute(unsigned long long bits, bool emit);
    unsigned long long ClearBits(unsigned long long bits, bool emit);
    /// The enable mask.
    unsigned long long GetBits() const;

    /// The component that marks of the calling thread, and of threads yet to make their first mark, belong
    /// to. Returns the manager's previous component id.
    unsigned long long SetComponentId(unsigned long long id);
    unsigned long long GetComponentId() const;

    /// The next context id: 1, 2, 3 ..., or 0 (no context) while `Collecting` is off. The argument is not
    /// used.
    unsigned long long GetNextContextId(int unused = 0);

    /// Hands "MX: " and the message to the log delegate, on the calling thread; without a delegate nothing
    /// happens. The library says here what goes wrong: each error of an output, and once for each kind what
    /// would leave an empty file without an error.
    void Log(const std::string& message);

    /// Replaces the log delegate; an empty one switches logging off. It may be called on any thread, and what
    /// it throws is swallowed. Set it before other threads use the library if no message is to be missed.
    /// While none was ever set, not even an empty one, the first error of an output in the process is a line
    /// on the error stream.
    void SetLogDelegate(std::function<void(const std::string&)> delegate);

    /// Counters of what happened so far; reading them costs the marking threads nothing.
    MetricsStatistics GetStatistics() const;

    /// The connection interface does nothing: this library sends nothing over a network.
    void Connect();
    void Disconnect();
    bool IsConnected() const;
    MetricsConnectionStatus GetConnectionStatus();
    /// The words for a status, "Unknown" for any other value; `lowerFirst` makes the first letter a small
    /// one.
    static std::string GetConnectionStatusString(MetricsConnectionStatus status, bool lowerFirst);

  private:
    friend class detail::Core;

    MetricsManager();
    ~MetricsManager();

    void ExecuteOnWorker(std::function<void()> task);
    std::map<std::string, MetricsValue>::const_iterator FindParameter(const std::string& name) const;

    std::shared_ptr<detail::Core> core_;
};

}  // namespace Metrics
