#include "metrics/manager/ThreadContext.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "metrics/base/OnePerProcess.h"
#include "metrics/manager/Core.h"
#include "metrics/platform/Platform.h"

namespace Metrics {

namespace {

// The records of the living threads, for those who leave a note.
struct Records {
    std::mutex mutex;
    std::unordered_map<std::uint64_t, MetricsThreadContext*> bySerial;
};

constinit detail::OnePerProcess<Records> theRecords;

[[maybe_unused]] const bool startsOverInChild =
    (platform::OnForkChild([] { theRecords.StartOverInChild(); }), true);

std::uint64_t NextSerial() {
    static constinit std::atomic<std::uint64_t> last{0};
    return ++last;
}

// Null when the thread is ending.
MetricsThreadContext* NewRecord() {
    auto record = std::make_unique<MetricsThreadContext>();
    const auto end = [](void* ended) { delete static_cast<MetricsThreadContext*>(ended); };
    return platform::SetThreadValue(record.get(), end) ? record.release() : nullptr;
}

}  // namespace

MetricsThreadContext* ThreadRecordSlow() {
    try {
        auto* record = static_cast<MetricsThreadContext*>(platform::ThreadValue());
        if (record == nullptr) record = NewRecord();
        if (record == nullptr) return nullptr;
        auto [core, generation] = detail::CurrentCoreAndGeneration();
        record->Adopt(std::move(core), generation);
        return record;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

MetricsThreadContext::MetricsThreadContext() : serial_(NextSerial()) {}

MetricsThreadContext::~MetricsThreadContext() {
    if (Records* records = theRecords.IfMade()) {
        const std::lock_guard lock(records->mutex);
        records->bySerial.erase(serial_);
        HandOverLeftOut();
    }
}

void MetricsThreadContext::NoteLeftOut() noexcept {
    if (core_ == nullptr || !core_->HasSubscribers()) return;
    leftOut_.store(leftOut_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

std::uint64_t MetricsThreadContext::CountLeftOut(const detail::Core& core) noexcept {
    Records* records = theRecords.IfMade();
    if (records == nullptr) return 0;
    const std::lock_guard lock(records->mutex);
    std::uint64_t count = 0;
    for (const auto& [serial, record] : records->bySerial) {
        if (record->core_.get() == &core) count += record->leftOut_.load(std::memory_order_relaxed);
    }
    return count;
}

// Under the lock of the list of records, so that a sum counts nothing twice.
void MetricsThreadContext::HandOverLeftOut() noexcept {
    const std::uint64_t count = leftOut_.exchange(0, std::memory_order_relaxed);
    if (count != 0 && core_ != nullptr) core_->CountLeftOut(count);
}

void MetricsThreadContext::Depart(std::uint64_t serial, const Departure& departure) noexcept {
    Records* records = theRecords.IfMade();
    if (records == nullptr) return;
    const std::lock_guard lock(records->mutex);
    const auto found = records->bySerial.find(serial);
    if (found == records->bySerial.end()) return;
    MetricsThreadContext& record = *found->second;
    try {
        record.departures_.push_back(departure);
    } catch (const std::bad_alloc&) {
        record.missedDepartures_ = true;
    }
    record.hasDepartures_.store(true, std::memory_order_relaxed);
}

void MetricsThreadContext::NoteDepartures() noexcept {
    std::vector<Departure> departures;
    bool missed = false;
    if (Records* records = theRecords.IfMade()) {
        const std::lock_guard lock(records->mutex);
        hasDepartures_.store(false, std::memory_order_relaxed);
        departures.swap(departures_);
        missed = std::exchange(missedDepartures_, false);
    }
    for (const Departure& departure : departures) {
        if (departure.scope != nullptr) LeaveBelow(departure.scope);
        if (departure.context != nullptr) Unpin(departure.context);
    }
    if (missed) scopes_.clear();  // any of them may be gone
}

void MetricsThreadContext::LeaveBelow(const Scope* scope) noexcept {
    const auto it = std::find(scopes_.rbegin(), scopes_.rend(), scope);
    if (it != scopes_.rend()) scopes_.erase(std::prev(it.base()));
}

bool MetricsThreadContext::MakeRoom() noexcept {
    try {
        scopes_.reserve(2 * scopes_.size() + 16);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool MetricsThreadContext::TakeContext(detail::ContextState* state) noexcept {
    if (generation_ != state->generation) return false;
    try {
        contexts_.Take(state);
    } catch (const std::bad_alloc&) {
        return false;
    }
    state->threadId.store(platform::CurrentThreadId(), std::memory_order_relaxed);
    return true;
}

void MetricsThreadContext::Adopt(std::shared_ptr<detail::Core> core, std::uint64_t generation) {
    {
        Records& records = theRecords.Get();
        const std::lock_guard lock(records.mutex);
        records.bySerial[serial_] = this;
        HandOverLeftOut();
        core_.swap(core);
    }
    // Contexts and scopes of a manager that is gone are nobody's any more; their ids would be mistaken for
    // new ones.
    contexts_.Clear();
    scopes_.clear();
    generation_ = generation;
    componentId = core_ ? core_->ComponentId() : 1;
    announceComponent = false;
}

}  // namespace Metrics
