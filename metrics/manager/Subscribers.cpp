#include "metrics/manager/Subscribers.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "metrics/manager/Worker.h"

namespace Metrics::detail {

namespace {

std::uint64_t NextToken() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

}  // namespace

Subscribers::Subscribers() {
    running_.reserve(2);  // entering a callback needs no memory
}

Subscribers::~Subscribers() = default;

Registration Subscribers::Add(MetricsEventCategory category, MetricsManager::Callback callback, bool owned) {
    int id = 1;
    for (auto it = entries_.begin(); it != entries_.end() && it->first == id; ++it) ++id;
    const std::uint64_t token = NextToken();
    entries_.emplace(id, std::make_shared<const Entry>(Entry{category, std::move(callback), token, owned}));
    return {id, token};
}

Subscribers::EntryPointer Subscribers::Remove(int id) {
    const auto node = entries_.extract(id);
    return node.empty() ? nullptr : node.mapped();
}

Subscribers::EntryPointer Subscribers::Remove(const Registration& registration) {
    return Token(registration.id) == registration.token ? Remove(registration.id) : nullptr;
}

std::map<int, Subscribers::EntryPointer> Subscribers::Clear() {
    return std::exchange(entries_, {});
}

std::pair<int, Subscribers::EntryPointer> Subscribers::After(int id) const {
    const auto it = entries_.upper_bound(id);
    return it == entries_.end() ? std::pair<int, EntryPointer>() : std::pair<int, EntryPointer>(*it);
}

std::uint64_t Subscribers::Token(int id) const {
    const auto it = entries_.find(id);
    return it == entries_.end() ? 0 : it->second->token;
}

std::int64_t Subscribers::CategoryUnion() const {
    std::int64_t bits = 0;
    for (const auto& [id, entry] : entries_) bits |= static_cast<std::int64_t>(entry->category) & 0xFF;
    return bits;
}

void Subscribers::BeginCall(std::uint64_t token, std::shared_ptr<const Worker> worker) {
    running_.push_back({token, std::move(worker)});
}

void Subscribers::EndCall(std::uint64_t token, const Worker* worker) {
    std::erase_if(running_,
                  [=](const Call& call) { return call.token == token && call.worker.get() == worker; });
}

bool Subscribers::IsRunning(std::uint64_t token) const {
    return std::any_of(running_.begin(), running_.end(),
                       [token](const Call& call) { return call.token == token && !call.worker->IsDead(); });
}

}  // namespace Metrics::detail
