#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "metrics/manager/queue/Block.h"
#include "metrics/manager/queue/TryLock.h"

namespace Metrics::detail {

/// Large blocks that no queue fills at the moment: those in the pool, for every queue, and the count of those
/// that queues keep for themselves. All together are at most `kMostIdle`.
///
/// Marks take from it, at the end of a block. The worker gives back, keeps as many ready as are asked for,
/// and gives to the system what nobody has wanted for a while. The lock is only tried, by the worker too.
template <class Traits>
class BlockPool {
  public:
    BlockPool() = default;
    ~BlockPool() {
        ForEachBlock(free_, [](Block* block) { DeleteBlock<Traits>(block); });
    }
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;

    /// For marks: a block, from the system when the pool has none or is being used; null without memory.
    Block* Take() noexcept {
        asked_.fetch_add(1, std::memory_order_relaxed);
        Block* block = TryTake();
        return block != nullptr ? block : NewBlock<Traits>(Traits::kSlots);
    }

    /// A block becomes idle, or is in use again. False when there are as many as may be.
    bool TryCountIdle() noexcept {
        if (idle_.fetch_add(1, std::memory_order_relaxed) < Traits::kMostIdle) return true;
        CountUsed();
        return false;
    }
    void CountUsed() noexcept { idle_.fetch_sub(1, std::memory_order_relaxed); }
    std::size_t Idle() const noexcept { return idle_.load(std::memory_order_relaxed); }

    /// For who empties blocks: keeps a block that is counted as idle, or gives it to the system.
    void Put(Block* block) noexcept {
        if (const std::unique_lock lock(lock_, std::try_to_lock); lock) {
            PutLocked(block);
            return;
        }
        CountUsed();
        DeleteBlock<Traits>(block);
    }
    /// The same for one that is not counted.
    void PutUncounted(Block* block) noexcept {
        if (TryCountIdle()) {
            Put(block);
        } else {
            DeleteBlock<Traits>(block);
        }
    }

    /// For the worker, once a cycle: has as many blocks ready as were asked for during the cycle before.
    void Refill() noexcept {
        const std::uint64_t asked = asked_.load(std::memory_order_relaxed);
        wanted_ = std::max<std::size_t>(asked - askedBefore_, wanted_);
        askedBefore_ = asked;
        const std::size_t ready = ready_.load(std::memory_order_relaxed);
        const std::size_t missing = wanted_ > ready ? wanted_ - ready : 0;
        for (std::size_t i = 0; i < std::min(missing, Traits::kMostRefilled); ++i) {
            Block* block = NewBlock<Traits>(Traits::kSlots);
            if (block == nullptr) return;
            PutUncounted(block);
        }
    }

    /// For the worker, once a second: half of what the whole second did without goes to the system.
    void Trim() noexcept {
        Block* surplus = nullptr;
        if (const std::unique_lock lock(lock_, std::try_to_lock); lock) {
            wanted_ = std::max(wanted_ / 2, Traits::kFewestReady);
            const std::size_t spare = fewest_ > wanted_ ? (fewest_ - wanted_ + 1) / 2 : 0;
            for (std::size_t i = 0; i < spare; ++i) {
                Block* block = PopLocked();
                block->next = surplus;
                surplus = block;
            }
            fewest_ = ready_.load(std::memory_order_relaxed);
        }
        ForEachBlock(surplus, [](Block* block) { DeleteBlock<Traits>(block); });
    }

    /// How many it has; a moment later there may be more or less.
    std::size_t Ready() const noexcept { return ready_.load(std::memory_order_relaxed); }

  private:
    Block* TryTake() noexcept {
        if (ready_.load(std::memory_order_relaxed) == 0) return nullptr;
        const std::unique_lock lock(lock_, std::try_to_lock);
        if (!lock || free_ == nullptr) return nullptr;
        Block* block = PopLocked();
        fewest_ = std::min(fewest_, ready_.load(std::memory_order_relaxed));
        return block;
    }
    Block* PopLocked() noexcept {
        Block* block = free_;
        free_ = block->next;
        ready_.store(ready_.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
        CountUsed();
        return block;
    }
    void PutLocked(Block* block) noexcept {
        block->next = free_;
        free_ = block;
        ready_.store(ready_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    template <class Value>
    using Counter = typename Traits::template Counter<Value>;

    TryLock<Traits> lock_;
    Block* free_ = nullptr;            // guarded by the lock
    std::size_t fewest_ = 0;           // that were ready since the last `Trim`; guarded by the lock
    Counter<std::size_t> ready_{0};    // how many are in `free_`; written under the lock
    Counter<std::size_t> idle_{0};     // those, and what queues keep for themselves
    Counter<std::uint64_t> asked_{0};  // by marks, ever

    // The worker's.
    std::uint64_t askedBefore_ = 0;
    std::size_t wanted_ = Traits::kFewestReady;
};

}  // namespace Metrics::detail
