#include "metrics/rows/StateTable.h"

#include <algorithm>

#include "metrics/RowDefinitionError.h"

namespace Metrics::detail {
namespace {

// Without "*" inside paths there are no more states than pattern nodes; with many of them they could double
// with each.
constexpr std::size_t kMaxStates = 20000;

}  // namespace

NameTable::NameTable(const CompiledRow& row) : names_(1) {
    for (const PatternNode& node : row.nodes) {
        if (!node.name.any && node.parent != kNone) names_.push_back(node.name.name);
    }
    std::sort(names_.begin() + 1, names_.end());
    names_.erase(std::unique(names_.begin() + 1, names_.end()), names_.end());
    std::size_t size = 16;
    while (size < names_.size() * 4) size *= 2;
    mask_ = size - 1;
    slots_.resize(size);
    for (std::uint32_t number = 1; number < names_.size(); ++number) {
        const std::uint64_t digest = StreamingXml::Digest(names_[number]);
        std::size_t at = PlaceOf(digest);
        while (slots_[at].number != 0) at = (at + 1) & mask_;
        slots_[at] = {digest, names_[number].size(), number};
    }
}

StateTable::StateTable(const CompiledRow& row) : row_(row), names_(row) {
    rootState_.next.assign(names_.Count(), nullptr);
}

const MatchState* StateTable::Build(const MatchState* from, std::uint32_t number, std::string_view name) {
    std::vector<int> nodes;
    const auto follow = [&](int node) {
        for (const int child : row_.nodes[static_cast<std::size_t>(node)].children) {
            const PathName& wanted = row_.nodes[static_cast<std::size_t>(child)].name;
            if (wanted.any || wanted.name == name) nodes.push_back(child);
        }
    };
    follow(kRoot);
    for (const int node : from->nodes) follow(node);
    std::sort(nodes.begin(), nodes.end());
    MatchState* const state = Intern(std::move(nodes));
    from->next[number] = state;
    return state;
}

MatchState* StateTable::Intern(std::vector<int> nodes) {
    auto& slot = states_[nodes];
    if (slot != nullptr) return slot.get();
    if (states_.size() > kMaxStates)
        throw RowDefinitionError("Error: the wildcards of the paths match in too many ways");
    slot = std::make_unique<MatchState>();
    MatchState& state = *slot;
    if (!row_.nodes[kRoot].operands.empty()) state.sources.push_back(kRoot);
    for (const int index : nodes) {
        const PatternNode& node = row_.nodes[static_cast<std::size_t>(index)];
        if (!node.operands.empty()) state.sources.push_back(index);
        if (node.isJoint) state.joints.push_back(node.joint);
    }
    std::stable_sort(state.joints.begin(), state.joints.end(), [&](int a, int b) {
        return row_.joints[static_cast<std::size_t>(a)].depth >
               row_.joints[static_cast<std::size_t>(b)].depth;
    });
    for (const int source : state.sources)
        state.wantsText |= row_.nodes[static_cast<std::size_t>(source)].textField != kNone;
    state.nodes = std::move(nodes);
    state.next.assign(names_.Count(), nullptr);
    return &state;
}

}  // namespace Metrics::detail
