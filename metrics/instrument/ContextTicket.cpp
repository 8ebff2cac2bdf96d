#include <utility>

#include "metrics/Context.h"
#include "metrics/manager/EventBuilder.h"

namespace Metrics {

ContextTicket::ContextTicket(std::uint64_t parentId, std::uint64_t id, std::string name)
    : generation_(0), parentId_(parentId), id_(id), name_(std::move(name)) {
    if (const MetricsThreadContext* record = ThreadRecord()) generation_ = record->Generation();
}

ContextTicket::ContextTicket(ContextTicket&& other) noexcept
    : generation_(other.generation_),
      parentId_(std::exchange(other.parentId_, 0)),
      id_(std::exchange(other.id_, 0)),
      name_(std::move(other.name_)) {}

ContextTicket& ContextTicket::operator=(ContextTicket&& other) noexcept {
    if (this != &other) {
        Discard();
        generation_ = other.generation_;
        parentId_ = std::exchange(other.parentId_, 0);
        id_ = std::exchange(other.id_, 0);
        name_ = std::move(other.name_);
    }
    return *this;
}

ContextTicket::~ContextTicket() {
    Discard();
}

// False when the manager that gave the ids is gone, with the outputs that wait for them.
bool ContextTicket::IsOurs() const noexcept {
    const MetricsThreadContext* record = ThreadRecord();
    return record != nullptr && record->Generation() == generation_;
}

// Begins and ends the context that nobody worked on: the parent's later events wait for that.
void ContextTicket::Discard() noexcept {
    if (id_ == 0 || !IsOurs()) return;
    const MetricsThreadContext& record = *ThreadRecord();
    detail::PostFor(record, MetricsEventType::ContextConstruct, id_, parentId_, id_);
    detail::PostFor(record, MetricsEventType::ContextClose, id_);
}

}  // namespace Metrics
