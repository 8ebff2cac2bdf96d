#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "metrics/MetricsManager.h"

namespace Metrics::detail {

class Worker;

/// A subscription id together with a token that is never used again, so that who outlives a restart of the
/// manager cannot remove a stranger that got the same id.
struct Registration {
    int id = 0;
    std::uint64_t token = 0;
};

/// The subscriptions, by id, and which of their callbacks are running. Guarded by the dispatch lock.
class Subscribers {
  public:
    struct Entry {
        MetricsEventCategory category;
        MetricsManager::Callback callback;
        std::uint64_t token;
        bool owned;  // by an object that holds the registration and expects it to last
    };
    using EntryPointer = std::shared_ptr<const Entry>;

    Subscribers();
    ~Subscribers();

    /// Enters a callback under the smallest free id.
    Registration Add(MetricsEventCategory category, MetricsManager::Callback callback, bool owned);

    /// Takes an entry out and returns it, so that the callback is destroyed where no lock is held; null if
    /// absent.
    EntryPointer Remove(int id);

    /// The same, but only if the entry still is the one of that registration.
    EntryPointer Remove(const Registration& registration);

    /// Takes everything out.
    std::map<int, EntryPointer> Clear();

    /// The entry with the smallest id above `id`; an id of 0 and null at the end.
    std::pair<int, EntryPointer> After(int id) const;

    bool IsEmpty() const noexcept { return entries_.empty(); }

    /// The token behind an id, or 0.
    std::uint64_t Token(int id) const;

    /// The OR of the low 8 bits of all categories.
    std::int64_t CategoryUnion() const;

    void BeginCall(std::uint64_t token, std::shared_ptr<const Worker> worker);
    void EndCall(std::uint64_t token, const Worker* worker);
    /// Whether a worker that is alive is in the callback.
    bool IsRunning(std::uint64_t token) const;

  private:
    std::map<int, EntryPointer> entries_;
    struct Call {
        std::uint64_t token;
        std::shared_ptr<const Worker> worker;
    };
    // More than one at a time only while an old worker is stuck in a callback.
    std::vector<Call> running_;
};

}  // namespace Metrics::detail
