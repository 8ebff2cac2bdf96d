#include "metrics/output/EventFifo.h"

#include <cwchar>
#include <string_view>

namespace Metrics::detail {

namespace {

// In steps of 16 bytes, the allocator's own 8 among them, as is usual.
std::size_t OwnedBytes(const MetricsValue& value) {
    if (!value.OwnsText()) return 0;
    const std::size_t text = value.Kind() == MetricsValueType::WideString
                                 ? (std::wcslen(value.WideText()) + 1) * sizeof(wchar_t)
                                 : std::string_view(value.Text()).size() + 1;
    return std::max<std::size_t>(32, (text + 8 + 15) / 16 * 16);
}

}  // namespace

std::size_t OwnedBytes(const MetricsEvent& event) {
    return OwnedBytes(event.header) + OwnedBytes(event.contextId) + OwnedBytes(event.timestamp) +
           OwnedBytes(event.param1) + OwnedBytes(event.param2);
}

EventBlocks::~EventBlocks() {
    while (free_ != nullptr) {
        Block* block = free_;
        free_ = block->next;
        delete block;
    }
}

EventBlocks::Block* EventBlocks::Take() {
    Block* block = free_ != nullptr ? free_ : new Block;
    ++taken_;
    if (block != free_) return block;
    free_ = block->next;
    block->next = nullptr;
    --kept_;
    return block;
}

void EventBlocks::GiveBack(Block* block) noexcept {
    --taken_;
    if (kept_ == kMostKept) {
        delete block;
        return;
    }
    block->next = free_;
    free_ = block;
    ++kept_;
}

void EventFifo::PushInNewBlock(const MetricsEvent& event) {
    EventBlocks::Block* block = blocks_->Take();
    try {
        std::construct_at(block->At(0), event);
    } catch (...) {
        blocks_->GiveBack(block);
        throw;
    }
    (size_ == 0 ? head_ : tail_->next) = block;
    tail_ = block;
    ++size_;
    if (event.OwnsText()) AddTexts(event);
}

void EventFifo::AddTexts(const MetricsEvent& event) {
    const std::size_t bytes = OwnedBytes(event);
    texts_ += bytes;
    blocks_->AddTexts(bytes);
}

void EventFifo::SubtractTexts(std::size_t count) noexcept {
    for (const MetricsEvent& event : Front().first(count)) {
        if (!event.OwnsText()) continue;
        const std::size_t bytes = OwnedBytes(event);
        texts_ -= bytes;
        blocks_->SubtractTexts(bytes);
    }
}

void EventFifo::GiveBackHead() noexcept {
    EventBlocks::Block* emptied = head_;
    head_ = head_->next;
    first_ = 0;
    blocks_->GiveBack(emptied);
}

}  // namespace Metrics::detail
