#include "examples/wordcount/Totals.h"

#include <algorithm>

#include "metrics/Instrument.h"

namespace WordCount {

using Metrics::MetricsValue;
using Metrics::MetricsValueBuffer;

namespace {

MetricsValue Next(const MetricsValueBuffer& buffer) {
    MetricsValue value;
    buffer.Extract(value);
    return value;
}

}  // namespace

void Totals::Merge(FileCounts&& file) {
    const Metrics::Context context(std::move(file.merge));
    METRICS_SCOPE("add");
    if (!file.error.empty()) {
        problems_.push_back(std::move(file.error));
        return;
    }
    ++files_;
    bytes_ += file.bytes;
    words_ += file.words;
    for (const auto& [word, count] : file.counts) counts_[word] += count;
    METRICS_VALUE("known", counts_.size());
}

MetricsValueBuffer Totals::ToBuffer() const {
    MetricsValueBuffer buffer;
    for (const std::uint64_t number : {files_, bytes_, words_}) buffer.Append(number);
    buffer.Append(problems_.size());
    for (const std::string& problem : problems_) buffer.Append(problem);
    buffer.Append(counts_.size());
    for (const auto& [word, count] : counts_) {
        buffer.Append(word);
        buffer.Append(count);
    }
    return buffer;
}

void Totals::Add(const MetricsValueBuffer& buffer) {
    for (std::uint64_t* number : {&files_, &bytes_, &words_}) *number += Next(buffer).AsUInt64();
    for (auto left = Next(buffer).AsUInt64(); left > 0; --left) problems_.push_back(Next(buffer).Text());
    for (auto left = Next(buffer).AsUInt64(); left > 0; --left) {
        const MetricsValue word = Next(buffer);
        counts_[word.Text()] += Next(buffer).AsUInt64();
    }
}

std::vector<std::pair<std::string, std::uint64_t>> Totals::Commonest(std::size_t most) const {
    std::vector<std::pair<std::string, std::uint64_t>> words(counts_.begin(), counts_.end());
    const auto middle = words.begin() + static_cast<std::ptrdiff_t>(std::min(most, words.size()));
    std::partial_sort(words.begin(), middle, words.end(), [](const auto& a, const auto& b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    });
    words.erase(middle, words.end());
    return words;
}

}  // namespace WordCount
