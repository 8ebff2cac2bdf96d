#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace Metrics::detail {

// What costs a row or an element only: reading goes on.
enum class RowLimit : std::uint8_t { Depth, ValueSize, WaitingRows, Groups };
inline constexpr std::size_t kRowLimits = 4;

// Where the limits are; tests make them small.
struct RowLimits {
    std::size_t depth = 10000;                   // of nested elements
    std::size_t valueSize = 16 * 1024 * 1024;    // bytes of one wanted value
    std::size_t waitingRows = 10000;             // in one element
    std::size_t groups = 1000000;                // of a summary
    std::size_t groupBytes = 128 * 1024 * 1024;  // of all groups together
};

// The first thing that a limit has cost.
struct RowNotice {
    RowLimit limit;
    std::uint64_t element;  // the number of the element where it happened (that of nodenum)
    std::string text;       // a sentence without a full stop; it names the element
};

// Counts what the limits cost and tells of each limit once. For the thread that feeds the engine.
class RowNotices {
  public:
    // Called in the middle of reading: it must neither throw nor feed.
    using Handler = std::function<void(const RowNotice&)>;

    void SetHandler(Handler handler) { handler_ = std::move(handler); }

    // `text` makes the sentence; called the first time only.
    template <class Text>
    void Add(RowLimit limit, std::uint64_t element, Text text) {
        if (counts_[static_cast<std::size_t>(limit)]++ == 0 && handler_)
            handler_(RowNotice{limit, element, text()});
    }

    // How many elements were skipped (Depth), values lost (ValueSize), rows sent on early (WaitingRows) or
    // rows not counted (Groups).
    std::uint64_t Count(RowLimit limit) const { return counts_[static_cast<std::size_t>(limit)]; }
    std::uint64_t Count() const { return std::accumulate(counts_.begin(), counts_.end(), std::uint64_t{0}); }
    // For the end: a sentence for each limit that has cost more than the first thing.
    std::vector<std::string> Totals() const;

  private:
    Handler handler_;
    std::array<std::uint64_t, kRowLimits> counts_{};
};

}  // namespace Metrics::detail
