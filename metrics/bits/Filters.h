#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "metrics/MetricsFilter.h"

namespace Metrics::detail {

// The file beside the executable; empty when its path does not fit.
std::string FilterFilePath();

// Every element that has any of the attributes "value", "name", "mnemonic" and "symbol" is a filter, unless
// it has no "value" and elements inside: that is the root or a group. One without a name or a mnemonic is
// passed over. Throws std::runtime_error for a filter without a value, and for what is not XML, with `path`
// and the line.
std::vector<MetricsFilter> ReadFilters(std::istream& in, const std::string& path);

}  // namespace Metrics::detail
