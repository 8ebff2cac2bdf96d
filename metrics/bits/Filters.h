#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "metrics/MetricsFilter.h"

namespace Metrics::detail {

// The file beside the executable; empty when its path does not fit.
std::string FilterFilePath();

// Every element that has any of the attributes "value", "name", "mnemonic" and "symbol" is a filter; without
// a name or a mnemonic it is passed over. Throws std::runtime_error for one without a value, and for what is
// not XML; `path` is for the message.
std::vector<MetricsFilter> ReadFilters(std::istream& in, const std::string& path);

}  // namespace Metrics::detail
