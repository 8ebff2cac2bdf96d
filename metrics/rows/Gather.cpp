#include "metrics/rows/Gather.h"

namespace Metrics::detail {

void Row::Reset(int joint, std::uint32_t newLevel, std::size_t operands) {
    for (Cell& cell : cells) cell = {};
    cells.resize(operands);
    origin = joint;
    level = newLevel;
    isOutranked = false;
}

void Gather::Reset(std::uint32_t newLevel, std::size_t operands, std::size_t branches) {
    level = newLevel;
    nextAge = 0;
    last.resize(operands);
    pending.resize(branches);
    pendingNode.resize(branches);
    lackBranch.resize(branches);
}

void Gather::Clear() {
    for (BringRef& bring : last) bring = {};
    for (BringRef& bring : pending) bring = {};
    if (nextAge == 0) return;  // none has waited
    waiting.clear();
    for (auto& rows : lackBranch) rows.clear();
}

}  // namespace Metrics::detail
