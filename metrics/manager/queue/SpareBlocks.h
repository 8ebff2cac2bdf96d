#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "metrics/manager/queue/BlockPool.h"
#include "metrics/manager/queue/BlockStack.h"

namespace Metrics::detail {

/// The empty large blocks that go round between one queue's worker and its thread: as many as were emptied in
/// a second, so that a thread in steady use asks nobody for memory. Others go to the pool.
template <class Traits>
class SpareBlocks {
  public:
    explicit SpareBlocks(BlockPool<Traits>& pool) noexcept : pool_(pool) {}
    ~SpareBlocks() { GiveUp(); }
    SpareBlocks(const SpareBlocks&) = delete;
    SpareBlocks& operator=(const SpareBlocks&) = delete;

    /// For the thread: a block, or null when none has come back.
    Block* Take() noexcept {
        Block* chain = kept_.TakeAll();
        if (chain == nullptr) chain = returned_.TakeAll();
        if (chain == nullptr) return nullptr;
        // Only this thread puts anything there, and it has just left it empty.
        if (chain->next != nullptr) kept_.Put(chain->next);
        count_.fetch_sub(1, std::memory_order_relaxed);
        pool_.CountUsed();
        return chain;
    }

    /// For the worker: a block has been emptied. `second` counts any seconds, upwards.
    void Return(Block* block, std::uint64_t second) noexcept {
        NoteEmptied(second);
        if (!pool_.TryCountIdle()) {
            DeleteBlock<Traits>(block);
        } else if (count_.load(std::memory_order_relaxed) < std::max(emptied_, emptiedBefore_)) {
            count_.fetch_add(1, std::memory_order_relaxed);
            returned_.Push(block);
        } else {
            pool_.Put(block);
        }
    }

    /// For the worker: a thread that has filled nothing for some seconds keeps nothing.
    void GiveUpAfterRest(std::uint64_t second) noexcept {
        if (second > second_ + kRestSeconds && count_.load(std::memory_order_relaxed) > 0) GiveUp();
    }

  private:
    static constexpr std::uint64_t kRestSeconds = 3;

    void NoteEmptied(std::uint64_t second) noexcept {
        if (second != second_) {
            emptiedBefore_ = second == second_ + 1 ? emptied_ : 0;
            emptied_ = 0;
            second_ = second;
        }
        ++emptied_;
    }
    void GiveUp() noexcept {
        const auto toPool = [this](Block* block) {
            count_.fetch_sub(1, std::memory_order_relaxed);
            pool_.Put(block);
        };
        ForEachBlock(kept_.TakeAll(), toPool);
        ForEachBlock(returned_.TakeAll(), toPool);
    }

    BlockPool<Traits>& pool_;
    BlockStack<Traits> returned_;  // by the worker
    BlockStack<Traits> kept_;      // the rest of a stack of which the thread has used some
    typename Traits::template Counter<std::size_t> count_{0};  // in both

    // The worker's.
    std::uint64_t second_ = 0;       // the last one in which blocks were emptied
    std::size_t emptied_ = 0;        // in that second
    std::size_t emptiedBefore_ = 0;  // in the one before
};

}  // namespace Metrics::detail
