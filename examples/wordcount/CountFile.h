#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "examples/wordcount/FileList.h"
#include "metrics/Context.h"

namespace WordCount {

/// How often each word occurs.
using Counts = std::unordered_map<std::string, std::uint64_t>;

/// What one file gave.
struct FileCounts {
    Counts counts;
    std::uint64_t bytes = 0;
    std::uint64_t words = 0;
    std::string error;             ///< why the file could not be counted, empty if it could
    Metrics::ContextTicket merge;  ///< the file's context for the thread that merges the counts
};

/// Reads a file, splits it into words and counts them. Never throws for what is wrong with the file.
FileCounts CountFile(const File& file);

}  // namespace WordCount
