#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace Metrics::detail {

/// What `MpscQueue` needs of its elements' memory. A producer draws a ticket, the number of its slot, builds
/// its element there and marks the slot as full; so one that is interrupted in between holds up the consumer,
/// but no other producer. Slots lie in blocks, which a directory finds by number, and a block leaves it when
/// all its elements are taken. Producers see to it that there are blocks for many tickets ahead, so that one
/// that has drawn a ticket has a place to write to.
///
/// Producers that are faster than the consumer, for long, are slowed (`SetCrowd`): a little, and more the
/// more waits. None of them waits for the consumer, but without that memory, and the time until an element's
/// turn, would grow as fast as they can write.
class MpscSlots {
  public:
    static constexpr std::uint64_t kBlock = 512;
    static constexpr std::uint64_t kDirectory = std::uint64_t{1} << 17;

    /// One cache line: producers don't disturb each other.
    struct Slot {
        alignas(64) std::byte element[60];
        std::atomic<std::uint32_t> full{0};
    };

    /// Throws `std::bad_alloc`.
    MpscSlots();
    ~MpscSlots();
    MpscSlots(const MpscSlots&) = delete;
    MpscSlots& operator=(const MpscSlots&) = delete;

    /// For producers, in this order: whether the next ticket may be drawn at once, and, if not, waiting for
    /// that (false when there is no memory or no room for more); the ticket; its slot, to be filled at once,
    /// unless that is still to be made.
    bool IsOpen() const noexcept { return door_.load(std::memory_order_relaxed) == Door::Open; }
    bool Admit() noexcept;
    std::uint64_t Draw() noexcept { return end_.tail.fetch_add(1, std::memory_order_relaxed); }
    bool HasRoomFor(std::uint64_t ticket) const noexcept {
        return ticket + kMargin < end_.limit.load(std::memory_order_acquire);
    }
    void MakeRoomFor(std::uint64_t ticket) noexcept;
    Slot& At(std::uint64_t ticket) noexcept {
        const std::atomic_ref entry(directory_[ticket / kBlock % kDirectory]);
        return entry.load(std::memory_order_relaxed)->slots[ticket % kBlock];
    }

    /// Producers are slowed while more than `elements` wait.
    void SetCrowd(std::uint64_t elements) noexcept { crowd_.store(elements, std::memory_order_relaxed); }

    /// How many tickets were drawn and not taken yet.
    std::uint64_t Size() const noexcept {
        const std::uint64_t taken = taken_.load(std::memory_order_acquire);
        return end_.tail.load(std::memory_order_acquire) - taken;
    }

    /// For the consumer: gives the next `count` slots, each of which was drawn, to `take` and empties them.
    template <class Take>
    void TakeEach(std::uint64_t count, Take take) {
        std::uint64_t next = taken_.load(std::memory_order_relaxed);
        const std::uint64_t end = next + count;
        while (next < end) {
            Block& block = WaitForBlockOf(next);
            const std::uint64_t blockEnd = (next / kBlock + 1) * kBlock;
            while (next < std::min(end, blockEnd)) {
                Slot& slot = block.slots[next % kBlock];
                if (slot.full.load(std::memory_order_acquire) == 0) [[unlikely]]
                    WaitUntilFull(slot);
                take(slot);
                slot.full.store(0, std::memory_order_relaxed);
                if (++next < blockEnd) taken_.store(next, std::memory_order_release);
            }
            if (next == blockEnd) Retire(block, next);
        }
    }

  private:
    /// Tickets that have a block, ahead of the last one drawn. When they can't be had no more are drawn, but
    /// by threads that are about to; there are less than this many of them, so that a ticket drawn gets its
    /// block.
    static constexpr std::uint64_t kMargin = 1024;
    /// Empty blocks are kept for as many tickets ahead.
    static constexpr std::uint64_t kKept = 4096;
    static_assert(kKept > kMargin + kBlock);

    /// What a producer finds before it draws a ticket.
    enum class Door : std::uint8_t {
        Open,
        Slow,   // who finds it so opens it, and sleeps for a moment
        Closed  // there was no memory for a block; to be tried again
    };

    struct Block {
        Slot slots[kBlock];
    };

    bool Grow() noexcept;
    bool Append(std::uint64_t limit, Block* block) noexcept;
    Block& WaitForBlockOf(std::uint64_t ticket) noexcept;
    static void WaitUntilFull(const Slot& slot) noexcept;
    void Retire(Block& block, std::uint64_t next) noexcept;

    Block** const directory_;
    std::atomic<Door> door_{Door::Open};
    std::atomic<std::uint64_t> crowd_{std::uint64_t{1} << 17};

    // All that producers write, on one cache line.
    struct alignas(64) End {
        std::atomic<std::uint64_t> tail{0};   // the next ticket
        std::atomic<std::uint64_t> limit{0};  // tickets below it have a block
    };
    End end_;

    // The slots below it are empty, and the blocks below it out of the directory.
    alignas(64) std::atomic<std::uint64_t> taken_{0};
};

/// A queue between many threads that append and one that takes: no lock, and no producer ever waits for
/// another one. Elements of one thread keep their order, and what was appended before an element was begun
/// stands in front of it. Holds at most `kCapacity` elements (4 GiB); what is beyond that, or finds no
/// memory, is refused.
template <class T>
class MpscQueue {
  public:
    static constexpr std::uint64_t kCapacity = (MpscSlots::kDirectory - 1) * MpscSlots::kBlock;

    /// Throws `std::bad_alloc`.
    MpscQueue() = default;
    /// Nobody appends or takes any more.
    ~MpscQueue() {
        slots_.TakeEach(slots_.Size(), [](MpscSlots::Slot& slot) { Element(slot)->~T(); });
    }
    MpscQueue(const MpscQueue&) = delete;
    MpscQueue& operator=(const MpscQueue&) = delete;

    /// Builds an element at the end: `build` is called with the place for it and must not fail. False when
    /// there is no room; it is then not called.
    template <class Build>
    [[nodiscard]] bool TryBuild(Build build) noexcept {
        static_assert(std::is_nothrow_invocable_v<Build, void*>, "a slot that was drawn must be filled");
        if (!slots_.IsOpen()) [[unlikely]]
            return BuildAdmitted(build);
        const std::uint64_t ticket = slots_.Draw();
        if (slots_.HasRoomFor(ticket)) [[likely]] {
            Fill(ticket, build);
        } else {
            BuildWithRoom(ticket, build);
        }
        return true;
    }
    [[nodiscard]] bool TryPush(T&& element) noexcept {
        return TryBuild([from = &element](void* place) noexcept { new (place) T(std::move(*from)); });
    }

    /// Producers are slowed while more than `elements` wait.
    void SetCrowd(std::size_t elements) noexcept { slots_.SetCrowd(elements); }

    /// How many elements are there, those that are being built included.
    std::size_t Size() const noexcept { return static_cast<std::size_t>(slots_.Size()); }

    /// Moves the first `count` elements, of those that `Size` has counted, to the end of `batch`. Throws when
    /// that finds no memory; what it has not got then stays in the queue. For one thread at a time; waits for
    /// producers that are in the midst of an append.
    void Drain(std::vector<T>& batch, std::size_t count) {
        slots_.TakeEach(count, [&](MpscSlots::Slot& slot) {
            T* element = Element(slot);
            batch.push_back(std::move(*element));
            element->~T();
        });
    }

  private:
    static_assert(sizeof(T) <= sizeof(MpscSlots::Slot::element) && alignof(T) <= alignof(MpscSlots::Slot));
    static_assert(std::is_nothrow_move_constructible_v<T>);

    static T* Element(MpscSlots::Slot& slot) noexcept {
        return std::launder(reinterpret_cast<T*>(slot.element));
    }

    // What seldom happens, apart from `TryBuild` and last in it, so that its callers keep no registers for
    // it.
    template <class Build>
    [[gnu::noinline]] bool BuildAdmitted(Build build) noexcept {
        if (!slots_.Admit()) return false;
        BuildWithRoom(slots_.Draw(), build);
        return true;
    }
    template <class Build>
    [[gnu::noinline]] void BuildWithRoom(std::uint64_t ticket, Build build) noexcept {
        if (!slots_.HasRoomFor(ticket)) slots_.MakeRoomFor(ticket);
        Fill(ticket, build);
    }
    template <class Build>
    void Fill(std::uint64_t ticket, const Build& build) noexcept {
        MpscSlots::Slot& slot = slots_.At(ticket);
        build(static_cast<void*>(slot.element));
        slot.full.store(1, std::memory_order_release);
    }

    MpscSlots slots_;
};

}  // namespace Metrics::detail
