#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "metrics/MetricsEvent.h"

namespace Metrics::detail {

// Copies of events, last in, first out. Those that own no text, which are nearly all, cost nothing to drop.
class EventStack {
  public:
    EventStack() = default;
    ~EventStack() { Truncate(0); }
    EventStack(const EventStack&) = delete;
    EventStack& operator=(const EventStack& other) {
        Truncate(0);
        for (std::size_t i = 0; i < other.Size(); ++i) Push(other[i]);
        return *this;
    }

    std::size_t Size() const { return slots_.size(); }
    MetricsEvent& operator[](std::size_t index) { return *At(index); }
    const MetricsEvent& operator[](std::size_t index) const {
        return *std::launder(reinterpret_cast<const MetricsEvent*>(slots_[index].room));
    }

    void Push(const MetricsEvent& event) {
        if (event.OwnsText()) [[unlikely]]
            return PushOwner(event);
        std::memcpy(slots_.emplace_back().room, static_cast<const void*>(&event), sizeof event);
    }
    void Truncate(std::size_t size) noexcept {
        if (ownsTexts_) [[unlikely]]
            Destroy(size);
        slots_.erase(slots_.begin() + static_cast<std::ptrdiff_t>(size), slots_.end());
    }

  private:
    // An event is moved by its bytes when there must be more room: nothing refers to it. One that owns no
    // text is copied by them.
    struct Slot {
        Slot() noexcept {}  // NOLINT: filled at once
        alignas(MetricsEvent) std::byte room[sizeof(MetricsEvent)];
    };

    MetricsEvent* At(std::size_t index) {
        return std::launder(reinterpret_cast<MetricsEvent*>(slots_[index].room));
    }
    void PushOwner(const MetricsEvent& event) {
        slots_.emplace_back();
        try {
            std::construct_at(At(slots_.size() - 1), event);
        } catch (...) {
            slots_.pop_back();
            throw;
        }
        ownsTexts_ = true;
    }
    void Destroy(std::size_t from) noexcept {
        for (std::size_t i = from; i < slots_.size(); ++i) std::destroy_at(At(i));
        ownsTexts_ = from != 0;
    }

    std::vector<Slot> slots_;
    bool ownsTexts_ = false;  // one of them may
};

}  // namespace Metrics::detail
