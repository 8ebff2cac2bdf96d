#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/reader/ByteSearch.h"
#include "metrics/rows/CompiledRow.h"

namespace Metrics::detail {

// The names that the paths mention, as small numbers; every other name is 0.
class NameTable {
  public:
    explicit NameTable(const CompiledRow& row);

    std::size_t Count() const { return names_.size(); }
    std::uint32_t Find(std::string_view name, std::uint64_t digest) const {
        for (std::size_t at = PlaceOf(digest);; at = (at + 1) & mask_) {
            const Slot& slot = slots_[at];
            const bool same = slot.digest == digest && slot.size == name.size() &&
                              (name.size() <= 8 || names_[slot.number] == name);
            if (same || slot.number == 0) return slot.number;
        }
    }

  private:
    struct Slot {
        std::uint64_t digest = 0;
        std::size_t size = 0;
        std::uint32_t number = 0;  // 0 in an empty one
    };

    std::size_t PlaceOf(std::uint64_t digest) const {
        return static_cast<std::size_t>(digest * 0x9E3779B97F4A7C15 >> 32) & mask_;
    }

    std::vector<std::string> names_;  // [0] stands for all others
    std::vector<Slot> slots_;         // open addressing, at most a quarter full
    std::size_t mask_ = 0;
};

// Which pattern nodes an element matches, and what follows from that. The leading "*" matches every element
// and is not listed among the nodes.
struct MatchState {
    std::vector<int> nodes;
    std::vector<int> sources;  // of them (and of "*") those that ask for something
    std::vector<int> joints;   // the joints among the nodes, the deepest first
    bool wantsText = false;
    mutable std::vector<const MatchState*> next;  // by name number; filled on demand
};

// A state machine over element names, built as the input needs it.
class StateTable {
  public:
    explicit StateTable(const CompiledRow& row);

    const MatchState* Root() const { return root_; }
    const MatchState* Next(const MatchState* from, std::string_view name, std::uint64_t digest) {
        const std::uint32_t number = names_.Find(name, digest);
        const MatchState* const known = from->next[number];
        return known != nullptr ? known : Build(from, number, name);
    }

  private:
    const MatchState* Build(const MatchState* from, std::uint32_t number, std::string_view name);
    MatchState* Intern(std::vector<int> nodes);

    const CompiledRow& row_;
    NameTable names_;
    std::map<std::vector<int>, std::unique_ptr<MatchState>> states_;
    MatchState rootState_;  // the implicit root element, which matches nothing
    const MatchState* root_ = &rootState_;
};

}  // namespace Metrics::detail
