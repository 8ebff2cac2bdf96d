#include "metrics/output/EventFifo.h"

namespace Metrics::detail {

EventBlocks::~EventBlocks() {
    while (free_ != nullptr) {
        Block* block = free_;
        free_ = block->next;
        delete block;
    }
}

EventBlocks::Block* EventBlocks::Take() {
    if (free_ == nullptr) return new Block;
    Block* block = free_;
    free_ = block->next;
    block->next = nullptr;
    --kept_;
    return block;
}

void EventBlocks::GiveBack(Block* block) noexcept {
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
}

void EventFifo::GiveBackHead() noexcept {
    EventBlocks::Block* emptied = head_;
    head_ = head_->next;
    first_ = 0;
    blocks_->GiveBack(emptied);
}

}  // namespace Metrics::detail
