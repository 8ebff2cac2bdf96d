#pragma once

#include <atomic>

#include "metrics/manager/queue/Block.h"

namespace Metrics::detail {

/// Empty blocks, put there by one thread at a time and taken by any. Who takes takes them all: taking the top
/// one alone would need its `next` while another thread may take the block, use it and put it back (ABA).
template <class Traits>
class BlockStack {
  public:
    void Push(Block* block) noexcept {
        Block* top = top_.load(std::memory_order_relaxed);
        do {
            block->next = top;
            // Releases the block's slots, which the pusher has read, to who will write them.
        } while (
            !top_.compare_exchange_weak(top, block, std::memory_order_release, std::memory_order_relaxed));
    }

    /// For the only one who ever puts something here, when it is known to be empty.
    void Put(Block* chain) noexcept { top_.store(chain, std::memory_order_release); }

    /// The top of a chain, or null. The chain is the caller's.
    Block* TakeAll() noexcept {
        if (top_.load(std::memory_order_relaxed) == nullptr) return nullptr;
        return top_.exchange(nullptr, std::memory_order_acquire);
    }

  private:
    typename Traits::template Atomic<Block*> top_{nullptr};
};

/// Calls `use` with each block of a chain, which it may delete or put elsewhere.
template <class Use>
void ForEachBlock(Block* chain, Use use) {
    while (chain != nullptr) {
        Block* block = chain;
        chain = chain->next;
        use(block);
    }
}

}  // namespace Metrics::detail
