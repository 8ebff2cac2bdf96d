#pragma once

#include <filesystem>

#include "metrics/MetricsValueBuffer.h"

namespace WordCount {

/// Writes the bytes of a buffer to a file, or takes them from it. Both throw std::runtime_error.
void SaveBuffer(const Metrics::MetricsValueBuffer& buffer, const std::filesystem::path& path);
Metrics::MetricsValueBuffer LoadBuffer(const std::filesystem::path& path);

}  // namespace WordCount
