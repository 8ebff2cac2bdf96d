#include "metrics/manager/MpscQueue.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

namespace Metrics::detail {

namespace {

// Looks until there is something. What is looked for is about to come: a thread was interrupted on its way.
template <class Look>
auto Await(Look look) noexcept {
    for (int looks = 0;; ++looks) {
        if (const auto found = look()) return found;
        if (looks < 1000) {
            std::this_thread::yield();
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    }
}

// What a producer sleeps for each block that is filled: half a millisecond when twice as much waits as it
// should, and the square of that beyond; in the end so long that any consumer keeps up.
std::chrono::microseconds Delay(std::uint64_t waiting, std::uint64_t crowd) {
    constexpr double kUnit = 500;
    constexpr double kLongest = 100'000;
    const double beyond = static_cast<double>(waiting) / static_cast<double>(crowd) - 1;
    const double delay = beyond > 0 ? std::min(kUnit * beyond * beyond, kLongest) : 0;
    return std::chrono::microseconds(static_cast<std::int64_t>(delay));
}

}  // namespace

// The directory is a megabyte, of which the system backs what is used.
MpscSlots::MpscSlots() : directory_(static_cast<Block**>(std::calloc(kDirectory, sizeof(Block*)))) {
    if (directory_ == nullptr) throw std::bad_alloc();
}

MpscSlots::~MpscSlots() {
    for (std::uint64_t i = 0; i < kDirectory; ++i) delete directory_[i];
    std::free(directory_);
}

// Makes blocks until the margin is there; false when it cannot.
bool MpscSlots::Grow() noexcept {
    for (;;) {
        const std::uint64_t limit = end_.limit.load(std::memory_order_acquire);
        if (end_.tail.load(std::memory_order_relaxed) + kMargin <= limit) {
            if (door_.load(std::memory_order_relaxed) == Door::Closed)
                door_.store(Door::Open, std::memory_order_relaxed);
            return true;
        }
        auto block = std::unique_ptr<Block>(new (std::nothrow) Block);
        if (block && Append(limit, block.get())) {
            static_cast<void>(block.release());
        } else if (!block || end_.limit.load(std::memory_order_relaxed) == limit) {
            door_.store(Door::Closed, std::memory_order_relaxed);
            return false;
        }
    }
}

// Puts an empty block at the end; false when it isn't wanted there. `limit` is where the end was when the
// caller looked. By now another thread may have put a block there, or even have moved the end round the whole
// directory; then the block stands in a place that waits for one, and is found when its turn comes.
bool MpscSlots::Append(std::uint64_t limit, Block* block) noexcept {
    const std::uint64_t number = limit / kBlock;
    if (number - taken_.load(std::memory_order_acquire) / kBlock >= kDirectory) return false;
    Block* none = nullptr;
    const std::atomic_ref entry(directory_[number % kDirectory]);
    const bool wanted = entry.compare_exchange_strong(none, block, std::memory_order_acq_rel);
    end_.limit.compare_exchange_strong(limit, limit + kBlock, std::memory_order_acq_rel);
    return wanted;
}

// Runs about once for each block, in the midst of an append, so it doesn't sleep itself.
void MpscSlots::MakeRoomFor(std::uint64_t ticket) noexcept {
    Await([&] {
        static_cast<void>(Grow());
        return ticket < end_.limit.load(std::memory_order_acquire);
    });
    Door open = Door::Open;
    if (Size() > crowd_.load(std::memory_order_relaxed))
        door_.compare_exchange_strong(open, Door::Slow, std::memory_order_relaxed);
}

// The door isn't open. False when it stays closed.
bool MpscSlots::Admit() noexcept {
    Door door = Door::Slow;
    if (door_.compare_exchange_strong(door, Door::Open, std::memory_order_relaxed)) {
        std::this_thread::sleep_for(Delay(Size(), crowd_.load(std::memory_order_relaxed)));
        return true;
    }
    return door == Door::Open || Grow();
}

MpscSlots::Block& MpscSlots::WaitForBlockOf(std::uint64_t ticket) noexcept {
    const std::atomic_ref entry(directory_[ticket / kBlock % kDirectory]);
    return *Await([&] { return entry.load(std::memory_order_acquire); });
}

void MpscSlots::WaitUntilFull(const Slot& slot) noexcept {
    Await([&] { return slot.full.load(std::memory_order_acquire) != 0; });
}

// The block below `next` has been emptied.
void MpscSlots::Retire(Block& block, std::uint64_t next) noexcept {
    std::atomic_ref(directory_[(next - 1) / kBlock % kDirectory]).store(nullptr, std::memory_order_relaxed);
    taken_.store(next, std::memory_order_release);
    const std::uint64_t limit = end_.limit.load(std::memory_order_acquire);
    if (limit >= next + kKept || !Append(limit, &block)) delete &block;
}

}  // namespace Metrics::detail
