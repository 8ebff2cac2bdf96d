#include "metrics/manager/RemoteEvents.h"

#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "metrics/MetricsEvent.h"
#include "metrics/manager/EventBuilder.h"

namespace Metrics::detail {

namespace {

/// Gives the contexts of one buffer ids of this process, for the length of one merge.
class IdMap {
  public:
    IdMap(Core& core, std::uint64_t current) : core_(core), current_(current) {}

    /// What belonged to no context there belongs to the merging thread's current one here.
    std::uint64_t Local(std::uint64_t remote) {
        if (remote == lastRemote_) return lastLocal_;
        lastLocal_ = remote == 0 ? current_ : Find(remote);
        lastRemote_ = remote;
        return lastLocal_;
    }

    void Replace(MetricsValue& id) { id = Local(id.AsUInt64()); }

  private:
    std::uint64_t Find(std::uint64_t remote) {
        const auto [it, isNew] = ids_.try_emplace(remote, 0);
        if (isNew) it->second = core_.NextContextId();
        return it->second;
    }

    Core& core_;
    const std::uint64_t current_;
    // Events of one context come in runs.
    std::uint64_t lastRemote_ = ~std::uint64_t{0};
    std::uint64_t lastLocal_ = ~std::uint64_t{0};
    std::unordered_map<std::uint64_t, std::uint64_t> ids_;
};

class Merge {
  public:
    Merge(Core& core, std::uint64_t current) : core_(core), current_(current), ids_(core, current) {}

    void Add(MetricsEvent&& event) {
        ids_.Replace(event.contextId);
        switch (event.Type()) {
            case MetricsEventType::ContextCreate: {
                const std::uint64_t remote = ReplaceParameters(event);
                announced_.insert(remote);
                // Created twice, it would be waited for once more when it is long closed.
                if (createdHere_.count(remote) != 0) return;
                break;
            }
            case MetricsEventType::ContextConstruct: {
                const std::uint64_t remote = ReplaceParameters(event);
                if (announced_.insert(remote).second) {
                    Announce(event.param2);
                    createdHere_.insert(remote);
                }
                break;
            }
            case MetricsEventType::SetBits:
            case MetricsEventType::SetBitsAbsolute:
            case MetricsEventType::ClearBits:
            case MetricsEventType::ContextIdBase:
                // The worker applies these; the local ones were applied by who made them.
                core_.PostRemoteChange({event.Type(), event.param1.AsUInt64(), event.param2.AsUInt64()});
                break;
            default: break;
        }
        core_.Post(std::move(event));
    }

  private:
    // Gives the two contexts that the event speaks of ids of this process; returns the second one's remote
    // id.
    std::uint64_t ReplaceParameters(MetricsEvent& event) {
        const std::uint64_t remote = event.param2.AsUInt64();
        ids_.Replace(event.param1);
        ids_.Replace(event.param2);
        return remote;
    }

    // A context whose creation the buffer does not hold, or holds later (an output of all contexts writes
    // what belongs to none at the end), is created under the merging thread's current one.
    void Announce(const MetricsValue& id) {
        MetricsEvent creation(MetricsEventType::ContextCreate);
        creation.contextId = current_;
        creation.param1 = current_;
        creation.param2 = id;
        core_.Post(std::move(creation));
    }

    Core& core_;
    const std::uint64_t current_;
    IdMap ids_;
    // By their remote ids.
    std::unordered_set<std::uint64_t> announced_;
    std::unordered_set<std::uint64_t> createdHere_;
};

}  // namespace

void MergeRemoteEvents(Core& core, const MetricsValueBuffer& buffer) {
    const MetricsThreadContext* record = ThreadRecord();
    Merge merge(core, record != nullptr ? record->CurrentId() : 0);
    const std::uint32_t count = buffer.ReadHeader().eventCount;
    if (count != 0 && record != nullptr) OpenOwnScope(record->Current());
    for (std::uint32_t i = 0; i < count; ++i) {
        MetricsEvent event;
        event.Read(buffer);
        merge.Add(std::move(event));
    }
}

}  // namespace Metrics::detail
