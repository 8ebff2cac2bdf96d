#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "examples/wordcount/CountFile.h"
#include "metrics/MetricsValueBuffer.h"

namespace WordCount {

/// The counts of all files together.
class Totals {
  public:
    /// Adds what a file gave, in a part of that file's own context.
    void Merge(FileCounts&& file);

    /// Everything as bytes, for another process, which adds it to its own. `Add` throws MetricsBufferError
    /// for bytes that are damaged.
    Metrics::MetricsValueBuffer ToBuffer() const;
    void Add(const Metrics::MetricsValueBuffer& buffer);

    /// The commonest words with their counts, at most `most`; equally common ones by the alphabet.
    std::vector<std::pair<std::string, std::uint64_t>> Commonest(std::size_t most) const;

    std::uint64_t Files() const { return files_; }
    std::uint64_t Bytes() const { return bytes_; }
    std::uint64_t Words() const { return words_; }
    std::size_t DifferentWords() const { return counts_.size(); }
    /// Files that could not be counted, and why.
    const std::vector<std::string>& Problems() const { return problems_; }

  private:
    Counts counts_;
    std::uint64_t files_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint64_t words_ = 0;
    std::vector<std::string> problems_;
};

}  // namespace WordCount
