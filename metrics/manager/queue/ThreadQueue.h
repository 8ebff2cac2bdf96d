#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "metrics/manager/queue/Block.h"
#include "metrics/manager/queue/QueueCommons.h"
#include "metrics/manager/queue/SpareBlocks.h"

namespace Metrics::detail {

/// The way of one thread's events to the worker. One thread writes, and at any time one worker reads, under
/// the dispatch lock. Neither waits for the other.
///
/// A chain of blocks. The thread fills a slot and publishes it with one release store of its count, together
/// with whether it has left; all that it wrote before (the slot, the next block's place in the chain) may be
/// read by who has seen the count. What the worker has read it gives back by a release store of its own
/// count.
///
/// Each element stands under a stamp (`StampCounter`): that drawn last before it. A slot holds only the step
/// from the stamp of the element before, mostly 0.
template <class T, class Traits>
class alignas(64) ThreadQueue {
  public:
    /// `name` is not 0 and names this queue only, for as long as the process lives.
    ThreadQueue(QueueCommons<Traits>& commons, std::uint64_t name) noexcept
        : commons_(commons), name_(name), spares_(commons.pool) {}

    /// Nobody uses it any more. Destroys what has not been taken.
    ~ThreadQueue() {
        seen_ = state_.load(std::memory_order_relaxed) / 2;
        Consume([](T&) {}, kAnyStamp, kAll);
        if (readBlock_ != &first_) Recycle(readBlock_);
        if (ahead_ != nullptr) Recycle(ahead_);
    }
    ThreadQueue(const ThreadQueue&) = delete;
    ThreadQueue& operator=(const ThreadQueue&) = delete;

    // --- For its thread ---

    std::uint64_t Name() const noexcept { return name_; }

    /// Puts the next element, and those behind it, under a stamp that is drawn now. If that element finds no
    /// room the next one stands under it.
    void DrawStamp() noexcept {
        const std::uint64_t stamp = commons_.stamps.Draw();
        step_ += stamp - drawn_;
        drawn_ = stamp;
    }

    /// Whether `count` elements find room without another block. Otherwise this is the time to find out
    /// whether there may be one (`PassBlockEnd`).
    bool HasRoom(std::size_t count = 1) const noexcept {
        return static_cast<std::size_t>(writeEnd_ - write_) >= count || ahead_ != nullptr;
    }

    /// Sees to it that `count` elements, fewer than a second block has slots, find room; false when there is
    /// no memory.
    bool Reserve(std::size_t count) noexcept {
        if (HasRoom(count + (step_ > Traits::kLargestStep ? 1 : 0))) return true;
        ahead_ = ObtainBlock();
        return ahead_ != nullptr;
    }

    /// Builds an element at the end: `build` is called with the place for it and must not fail. False when
    /// there is no memory; it is then not called.
    template <class Build>
    [[nodiscard]] bool TryBuild(Build build) noexcept {
        static_assert(std::is_nothrow_invocable_v<Build, void*>, "a slot that was taken must be filled");
        if (write_ == writeEnd_ || step_ > Traits::kLargestStep) [[unlikely]] {
            if (!MakeReady()) return false;
        }
        build(static_cast<void*>(write_->element));
        FinishSlot(static_cast<std::uint32_t>(std::exchange(step_, 0)));
        ++filled_;
        state_.store(filled_ * 2, std::memory_order_release);
        return true;
    }

    /// Elements that the worker has not taken.
    std::uint64_t Waiting() const noexcept { return filled_ - taken_.load(std::memory_order_relaxed); }

    /// The last thing that its thread does with it.
    void Leave() noexcept { state_.store(filled_ * 2 + kLeft, std::memory_order_release); }

    // --- For the worker, under the dispatch lock ---

    enum class Found : std::uint8_t {
        Nothing,
        Elements,
        End  // there will never be any more
    };
    /// Looks, once a cycle, at how far it is filled; no more than that is taken in the cycle.
    ///
    /// The count and whether the thread has left are one word: read apart, *left* would have to be read
    /// first, or an element between the two reads would be lost.
    Found Look() noexcept {
        const std::uint64_t state = state_.load(std::memory_order_acquire);
        seen_ = state / 2;
        if (seen_ != position_) return Found::Elements;
        return (state & kLeft) != 0 ? Found::End : Found::Nothing;
    }

    /// Whether something that was seen has not been taken.
    bool HasSeen() const noexcept { return position_ != seen_; }

    /// The stamp of the next element that was seen.
    std::uint64_t NextStamp() noexcept {
        if (read_ == readEnd_) NextReadBlock();
        while (read_->step == Slot::kJump) [[unlikely]] Jump();
        return stamp_ + read_->step;
    }

    /// Moves what was seen and stands under stamps up to `last` to the end of `batch`, at most `most`
    /// elements, for which there must be capacity. Returns how many.
    std::size_t Take(std::vector<T>& batch, std::uint64_t last, std::size_t most) noexcept {
        const auto append = [&batch](T& element) { batch.push_back(std::move(element)); };
        const std::size_t count = Consume(append, last, most);
        // Releases the slots to the thread, which may use its block again.
        taken_.store(position_, std::memory_order_release);
        return count;
    }

    /// Once a second.
    void Rest() noexcept { spares_.GiveUpAfterRest(commons_.second); }

    // --- For who holds the lock of the set of queues ---

    struct Sums {
        std::uint64_t taken = 0;
        std::uint64_t published = 0;
    };
    /// Taken is read before published, so it is never more.
    Sums Counts() const noexcept {
        const std::uint64_t taken = taken_.load(std::memory_order_acquire);
        return {taken, state_.load(std::memory_order_relaxed) / 2};
    }

    /// In the chain of queues that were linked and not yet taken in.
    ThreadQueue* linked = nullptr;

  private:
    static_assert(sizeof(T) <= sizeof(Slot::element) && alignof(T) <= alignof(Slot));
    static_assert(std::is_nothrow_move_constructible_v<T>);

    static constexpr std::uint64_t kLeft = 1;
    static constexpr std::uint64_t kAnyStamp = UINT64_MAX;
    static constexpr std::size_t kAll = SIZE_MAX;

    template <class Value>
    using Atomic = typename Traits::template Atomic<Value>;

    // --- The thread's part ---

    void FinishSlot(std::uint32_t step) noexcept {
        write_->step = step;
        ++write_;
    }

    [[gnu::noinline]] bool MakeReady() noexcept {
        if (write_ == writeEnd_ && !NextWriteBlock()) return false;
        if (step_ <= Traits::kLargestStep) return true;
        // Not counted; published together with the element behind it.
        const std::uint64_t step = std::exchange(step_, 0);
        std::memcpy(write_->element, &step, sizeof step);
        FinishSlot(Slot::kJump);
        return write_ != writeEnd_ || NextWriteBlock();
    }

    bool NextWriteBlock() noexcept {
        Block* next = std::exchange(ahead_, nullptr);
        if (next == nullptr && MayBeginAgain()) next = writeBlock_;
        if (next == nullptr) next = ObtainBlock();
        if (next == nullptr) return false;
        if (next != writeBlock_) {
            commons_.backlog.Add(writeBlock_->Bytes());
            writeBlock_->next = next;
        }
        Begin(next);
        return true;
    }

    // When the worker has taken everything it stands at the end of this block too, and has not left it: so
    // the thread may begin the block again. One of a modest pace does so for ever. (Before a jump the worker
    // may still stand.)
    bool MayBeginAgain() const noexcept {
        return taken_.load(std::memory_order_acquire) == filled_ && (writeEnd_ - 1)->step != Slot::kJump;
    }

    void Begin(Block* block) noexcept {
        block->begin = filled_;
        writeBlock_ = block;
        write_ = block->slots;
        writeEnd_ = block->End();
    }

    Block* ObtainBlock() noexcept {
        if (writeBlock_ == &first_) return NewBlock<Traits>(Traits::kSecondSlots);
        Block* block = spares_.Take();
        return block != nullptr ? block : commons_.pool.Take();
    }

    // --- The worker's part ---

    // Moves past elements to `use`, which leaves them to be destroyed.
    template <class Use>
    std::size_t Consume(Use use, std::uint64_t last, std::size_t most) noexcept {
        std::size_t count = 0;
        while (count < most && position_ != seen_) {
            const std::uint64_t stamp = NextStamp();
            if (stamp > last) break;
            stamp_ = stamp;
            T* element = std::launder(reinterpret_cast<T*>(read_->element));
            use(*element);
            element->~T();
            ++read_;
            ++position_;
            ++count;
        }
        return count;
    }

    void Jump() noexcept {
        std::uint64_t step;
        std::memcpy(&step, read_->element, sizeof step);
        stamp_ += step;
        ++read_;
        if (read_ == readEnd_) NextReadBlock();
    }

    // At the end of a block, when something behind it has been seen: only then has the thread said whether
    // it has begun the block again or gone on to another one. (It may have done both.)
    void NextReadBlock() noexcept {
        if (readBlock_->begin != position_) LeaveReadBlock();
        read_ = readBlock_->slots;
        readEnd_ = readBlock_->End();
    }

    void LeaveReadBlock() noexcept {
        Block* emptied = std::exchange(readBlock_, readBlock_->next);
        commons_.backlog.Remove(emptied->Bytes());
        if (emptied != &first_) Recycle(emptied);
    }

    void Recycle(Block* block) noexcept {
        if (block->size == Traits::kSlots) {
            spares_.Return(block, commons_.second);
        } else {
            DeleteBlock<Traits>(block);
        }
    }

    QueueCommons<Traits>& commons_;
    const std::uint64_t name_;
    SpareBlocks<Traits> spares_;

    // Written by the thread only, and but for the last one read by it only.
    alignas(64) Slot* write_ = firstSlots_.data();
    Slot* writeEnd_ = write_ + Traits::kFirstSlots;
    Block* writeBlock_ = &first_;
    Block* ahead_ = nullptr;    // reserved, behind `writeBlock_`
    std::uint64_t filled_ = 0;  // elements, ever
    std::uint64_t drawn_ = 0;   // the last stamp
    std::uint64_t step_ = 0;    // to it, from that of the last element
    Atomic<std::uint64_t> state_{
        0};  // twice the elements that are published, and whether the thread has left

    // Written under the dispatch lock.
    alignas(64) Slot* read_ = firstSlots_.data();
    Slot* readEnd_ = read_ + Traits::kFirstSlots;
    Block* readBlock_ = &first_;
    std::uint64_t position_ = 0;      // elements before `read_`
    std::uint64_t seen_ = 0;          // how far it was filled at the last look
    std::uint64_t stamp_ = 0;         // under which the read position stands
    Atomic<std::uint64_t> taken_{0};  // the position, for others

    Block first_{firstSlots_.data(), Traits::kFirstSlots};
    std::array<Slot, Traits::kFirstSlots> firstSlots_;
};

}  // namespace Metrics::detail
