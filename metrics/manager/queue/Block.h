#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

namespace Metrics::detail {

/// A cache line of a queue: an element, and how far its stamp is from that of the element before.
struct Slot {
    /// In `step`: this slot holds no element but, as 64 bits, a step that is too large for a slot.
    static constexpr std::uint32_t kJump = 0xFFFF'FFFF;

    alignas(64) std::byte element[60];
    std::uint32_t step;
};
static_assert(sizeof(Slot) == 64);

/// Slots in a row. `next` is the block behind it in its queue, or below it in a stack of empty ones: a block
/// is in one of them at a time.
struct alignas(64) Block {
    Block(Slot* first, std::size_t count) noexcept : slots(first), size(count) {}

    Slot* End() const noexcept { return slots + size; }
    static constexpr std::size_t Bytes(std::size_t slots) { return sizeof(Block) + slots * sizeof(Slot); }
    std::size_t Bytes() const noexcept { return Bytes(size); }

    Block* next = nullptr;
    std::uint64_t begin = 0;  // how many elements its queue had before its first slot
    Slot* const slots;
    const std::size_t size;
};
static_assert(sizeof(Block) == 64);

/// A block with its slots behind it, or null.
template <class Traits>
Block* NewBlock(std::size_t slots) noexcept {
    void* memory = Traits::Allocate(Block::Bytes(slots));
    if (memory == nullptr) return nullptr;
    auto* first = reinterpret_cast<Slot*>(static_cast<std::byte*>(memory) + sizeof(Block));
    return new (memory) Block(first, slots);
}

template <class Traits>
void DeleteBlock(Block* block) noexcept {
    Traits::Free(block, block->Bytes());
}

}  // namespace Metrics::detail
