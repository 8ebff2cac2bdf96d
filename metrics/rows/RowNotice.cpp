#include "metrics/rows/RowNotice.h"

namespace Metrics::detail {

std::vector<std::string> RowNotices::Totals() const {
    constexpr std::array<const char*, kRowLimits> kWhat = {
        " elements that nest too deep were left out", " values were too long",
        " rows went without what they waited for", " rows of further groups were not counted"};
    std::vector<std::string> totals;
    for (std::size_t i = 0; i < kRowLimits; ++i)
        if (counts_[i] > 1) totals.push_back("in all " + std::to_string(counts_[i]) + kWhat[i]);
    return totals;
}

}  // namespace Metrics::detail
