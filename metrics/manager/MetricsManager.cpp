#include "metrics/MetricsManager.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "metrics/Gate.h"
#include "metrics/manager/Core.h"
#include "metrics/manager/EventBuilder.h"
#include "metrics/manager/RemoteEvents.h"
#include "metrics/manager/ThreadContext.h"

namespace Metrics {

namespace {

constexpr unsigned long long kDefaultMask = 0xFFF;

void PostMaskChange(detail::Core& core, MetricsEventType type, unsigned long long bits) {
    MetricsEvent event(type);
    event.param1 = bits;
    core.Post(std::move(event));
}

// A relaxed load and a relaxed store, not one step: a mask is set up by one thread, and readers pay nothing
// for it.
unsigned long long ExchangeMask(unsigned long long old, unsigned long long fresh) {
    detail::enableMask.store(fresh, std::memory_order_relaxed);
    return old;
}

}  // namespace

MetricsManager::MetricsManager() : core_(std::make_shared<detail::Core>()) {
    detail::enableMask.store(kDefaultMask, std::memory_order_relaxed);
}

MetricsManager::~MetricsManager() = default;

void MetricsManager::Start() {
    std::shared_ptr(core_)->Start();
}

void MetricsManager::Shutdown() {
    std::shared_ptr(core_)->Shutdown();
}

void MetricsManager::SetState(ManagerState bits, bool on) {
    const std::uint32_t mine = bits & Collecting;
    if (mine != bits)
        Log("MetricsManager SetState: only Collecting can be switched; the other bits are ignored");
    if (mine != 0) core_->ChangeState(on ? mine : 0, on ? 0 : mine);
}

std::uint32_t MetricsManager::GetState() const {
    return core_->State();
}

bool MetricsManager::WaitUntil(std::function<bool()> predicate, int timeoutMs) const {
    return std::shared_ptr(core_)->WaitUntil(predicate, timeoutMs);
}

void MetricsManager::SetThreadInitFunction(std::function<void()> function) {
    core_->SetThreadInitFunction(std::move(function));
}

int MetricsManager::Subscribe(MetricsEventCategory category, Callback callback) {
    return std::shared_ptr(core_)->Register(category, std::move(callback), false).id;
}

void MetricsManager::Unsubscribe(int id) {
    std::shared_ptr(core_)->Unsubscribe(id);
}

void MetricsManager::MergeRemoteEvents(std::shared_ptr<MetricsValueBuffer> buffer) {
    if (buffer) detail::MergeRemoteEvents(*std::shared_ptr(core_), *buffer);
}

unsigned long long MetricsManager::SetBits(unsigned long long bits, bool emit) {
    const auto old = GetBits();
    ExchangeMask(old, old | bits);
    if (emit) PostMaskChange(*core_, MetricsEventType::SetBits, bits);
    return old;
}

unsigned long long MetricsManager::SetBitsAbsolute(unsigned long long bits, bool emit) {
    const auto old = ExchangeMask(GetBits(), bits);
    if (emit) PostMaskChange(*core_, MetricsEventType::SetBitsAbsolute, bits);
    return old;
}

unsigned long long MetricsManager::ClearBits(unsigned long long bits, bool emit) {
    const auto old = GetBits();
    ExchangeMask(old, old & ~bits);
    if (emit) PostMaskChange(*core_, MetricsEventType::ClearBits, bits);
    return old;
}

unsigned long long MetricsManager::GetBits() const {
    return detail::enableMask.load(std::memory_order_relaxed);
}

unsigned long long MetricsManager::SetComponentId(unsigned long long id) {
    const auto old = core_->SetComponentId(id);
    if (MetricsThreadContext* record = ThreadRecord()) {
        record->announceComponent = record->announceComponent || record->componentId != id;
        record->componentId = id;
    }
    return old;
}

unsigned long long MetricsManager::GetComponentId() const {
    return core_->ComponentId();
}

unsigned long long MetricsManager::GetNextContextId(int) {
    return core_->NextContextId();
}

void MetricsManager::Log(const std::string& message) {
    std::shared_ptr(core_)->Log(message);
}

void MetricsManager::SetLogDelegate(std::function<void(const std::string&)> delegate) {
    core_->SetLogDelegate(std::move(delegate));
}

MetricsStatistics MetricsManager::GetStatistics() const {
    return core_->Statistics();
}

void MetricsManager::Connect() {}

void MetricsManager::Disconnect() {
    Connect();
}

bool MetricsManager::IsConnected() const {
    return false;
}

MetricsConnectionStatus MetricsManager::GetConnectionStatus() {
    return MetricsConnectionStatus{0};
}

std::string MetricsManager::GetConnectionStatusString(MetricsConnectionStatus status, bool lowerFirst) {
    std::string words = "Unknown";
    switch (status) {
        case MetricsConnectionStatus::Disconnected: words = "Disconnected"; break;
        case MetricsConnectionStatus::Connecting: words = "Connecting"; break;
        case MetricsConnectionStatus::Connected: words = "Connected"; break;
        case MetricsConnectionStatus::Reconnecting: words = "Reconnecting"; break;
        case MetricsConnectionStatus::LostConnection: words = "Lost connection"; break;
    }
    if (lowerFirst) words[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(words[0])));
    return words;
}

void MetricsManager::ExecuteOnWorker(std::function<void()> task) {
    std::shared_ptr(core_)->ExecuteOnWorker(std::move(task));
}

std::map<std::string, MetricsValue>::const_iterator MetricsManager::FindParameter(
    const std::string& name) const {
    std::string key = name;
    std::transform(key.begin(), key.end(), key.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return core_->Parameters().find(key);
}

}  // namespace Metrics
