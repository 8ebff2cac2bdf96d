#include "metrics/rows/GroupKeys.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace Metrics::detail {
namespace {

std::uint32_t HashOf(std::uint32_t parent, std::string_view key) {
    const std::uint64_t mixed =
        (std::hash<std::string_view>()(key) ^ (std::uint64_t{parent} << 32)) * 0x9E3779B97F4A7C15;
    return static_cast<std::uint32_t>(mixed >> 32);
}

}  // namespace

std::uint32_t GroupKeys::Find(std::uint32_t parent, std::string_view key) const {
    const std::uint32_t hash = HashOf(parent, key);
    for (std::size_t at = PlaceFor(hash); slots_[at] != kNone; at = (at + 1) & (slots_.size() - 1)) {
        const Node& node = nodes_[slots_[at]];
        if (node.hash == hash && node.parent == parent && KeyOf(slots_[at]) == key) return slots_[at];
    }
    return kNone;
}

std::uint32_t GroupKeys::Add(std::uint32_t parent, std::string_view key, std::string_view note) {
    if (2 * (nodes_.size() + 1) > slots_.size()) Grow();
    char* const text = Allocate(key.size() + note.size());
    std::copy(note.begin(), note.end(), std::copy(key.begin(), key.end(), text));
    const std::uint32_t hash = HashOf(parent, key);
    const auto node = static_cast<std::uint32_t>(nodes_.size());
    nodes_.push_back({{text, key.size() + note.size()}, key.size(), parent, hash});
    std::size_t at = PlaceFor(hash);
    while (slots_[at] != kNone) at = (at + 1) & (slots_.size() - 1);
    slots_[at] = node;
    return node;
}

void GroupKeys::Grow() {
    slots_.assign(2 * slots_.size(), kNone);
    for (std::uint32_t node = 0; node < nodes_.size(); ++node) {
        std::size_t at = PlaceFor(nodes_[node].hash);
        while (slots_[at] != kNone) at = (at + 1) & (slots_.size() - 1);
        slots_[at] = node;
    }
}

char* GroupKeys::Allocate(std::size_t size) {
    constexpr std::size_t kBlock = 16384;
    if (size > freeSize_) {
        freeSize_ = std::max(size, kBlock);
        blocks_.push_back(std::make_unique<char[]>(freeSize_));
        free_ = blocks_.back().get();
    }
    freeSize_ -= size;
    return std::exchange(free_, free_ + size);
}

}  // namespace Metrics::detail
