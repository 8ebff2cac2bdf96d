#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Metrics::detail {

// Writes date-times and remembers the text of the last second, since neighbouring events seldom differ in
// more than their fraction. A writer owns one; it belongs to one thread at a time.
class DateTimeText {
  public:
    static constexpr std::size_t kMaxSize = 32;

    // Writes `ticks`, clamped to the last day that MetricsDate can hold, to `out`, which has room for
    // kMaxSize characters. Returns the end of what it wrote.
    char* Write(char* out, std::uint64_t ticks, bool subseconds);

  private:
    void Remember(std::uint64_t second);

    std::uint64_t second_ = UINT64_MAX;  // that `text_` shows, since the start of day 0
    std::size_t size_ = 0;
    char text_[kMaxSize];
};

// UTC in ISO 8601 with microseconds, such as 2026-11-21T07:31:53.000120Z, of a time since 1970.
std::string IsoTimeText(std::int64_t microseconds);

}  // namespace Metrics::detail
