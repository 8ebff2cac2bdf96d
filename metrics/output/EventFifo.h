#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <span>

#include "metrics/MetricsEvent.h"
#include "metrics/platform/Prefetch.h"

namespace Metrics::detail {

// Blocks of room for events, kept for reuse so that queues which fill and empty all the time allocate
// nothing.
class EventBlocks {
  public:
    static constexpr std::size_t kEvents = 32;

    struct Block {
        Block* next = nullptr;
        alignas(MetricsEvent) std::byte room[kEvents * sizeof(MetricsEvent)];

        MetricsEvent* At(std::size_t index) {
            return std::launder(reinterpret_cast<MetricsEvent*>(room + index * sizeof(MetricsEvent)));
        }
    };

    EventBlocks() = default;
    ~EventBlocks();
    EventBlocks(const EventBlocks&) = delete;
    EventBlocks& operator=(const EventBlocks&) = delete;

    Block* Take();
    void GiveBack(Block* block) noexcept;

    // What the events take that are held in blocks of this store, their texts included.
    std::size_t Bytes() const { return taken_ * sizeof(Block) + texts_; }
    void AddTexts(std::size_t bytes) { texts_ += bytes; }
    void SubtractTexts(std::size_t bytes) { texts_ -= bytes; }

  private:
    static constexpr std::size_t kMostKept = 4096;  // 8 MB; a larger peak goes back to the system

    Block* free_ = nullptr;
    std::size_t kept_ = 0;
    std::size_t taken_ = 0;
    std::size_t texts_ = 0;
};

// What the texts take that an event owns, with what the allocator adds to each.
std::size_t OwnedBytes(const MetricsEvent& event);

// Events in order of arrival. An empty one owns no block.
class EventFifo {
  public:
    explicit EventFifo(EventBlocks& blocks) : blocks_(&blocks) {}
    ~EventFifo() { Clear(); }
    EventFifo(const EventFifo&) = delete;
    EventFifo& operator=(const EventFifo&) = delete;

    bool Empty() const { return size_ == 0; }
    std::size_t Size() const { return size_; }
    // What its events take.
    std::size_t Bytes() const {
        const std::size_t blocks = (first_ + size_ + EventBlocks::kEvents - 1) / EventBlocks::kEvents;
        return (Empty() ? 0 : blocks * sizeof(EventBlocks::Block)) + texts_;
    }
    // The first ones, as many as lie together; at least one unless it is empty. What lies behind them is
    // asked for: it was held back long enough to have left the cache.
    std::span<MetricsEvent> Front() {
        if (Empty()) return {};
        if (first_ == 0 && head_->next != nullptr) platform::Prefetch(head_->next, sizeof *head_->next);
        return {head_->At(first_), std::min(size_, EventBlocks::kEvents - first_)};
    }

    void Push(const MetricsEvent& event) {
        const std::size_t index = (first_ + size_) % EventBlocks::kEvents;
        if (index == 0) return PushInNewBlock(event);
        // Where the next but one goes: by then events of other contexts may have driven it out of the cache.
        platform::Prefetch(tail_->room +
                           std::min(index + 2, EventBlocks::kEvents - 1) * sizeof(MetricsEvent));
        std::construct_at(tail_->At(index), event);
        ++size_;
        if (event.OwnsText()) [[unlikely]]
            AddTexts(event);
    }
    // Removes the first `count` of what Front returns.
    void Pop(std::size_t count) noexcept {
        if (texts_ != 0) [[unlikely]]
            SubtractTexts(count);
        std::destroy_n(head_->At(first_), count);
        size_ -= count;
        first_ += count;
        if (first_ == EventBlocks::kEvents || size_ == 0) GiveBackHead();
    }
    void Clear() noexcept {
        while (!Empty()) Pop(Front().size());
    }

    template <class Visit>
    void ForEach(Visit visit) const {
        EventBlocks::Block* block = head_;
        std::size_t index = first_;
        for (std::size_t left = size_; left != 0; --left) {
            visit(*block->At(index));
            if (++index == EventBlocks::kEvents) {
                block = block->next;
                index = 0;
            }
        }
    }

  private:
    void PushInNewBlock(const MetricsEvent& event);
    void GiveBackHead() noexcept;
    void AddTexts(const MetricsEvent& event);
    void SubtractTexts(std::size_t count) noexcept;

    EventBlocks* blocks_;
    EventBlocks::Block* head_ = nullptr;
    EventBlocks::Block* tail_ = nullptr;
    std::size_t first_ = 0;  // of the events in `head_`
    std::size_t size_ = 0;
    std::size_t texts_ = 0;  // what the texts of its events take
};

}  // namespace Metrics::detail
