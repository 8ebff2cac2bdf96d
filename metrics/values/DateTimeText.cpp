#include "metrics/values/DateTimeText.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "metrics/MetricsDate.h"
#include "metrics/MetricsDateTime.h"
#include "metrics/values/CurrentTime.h"

namespace Metrics::detail {

namespace {

constexpr std::uint64_t kSecondsPerDay = MetricsDateTime::scaling / MetricsDateTime::subsecond_res;
constexpr std::uint64_t kLastTick = (std::uint64_t{INT32_MAX} + 1) * MetricsDateTime::scaling - 1;

char* WriteTwoDigits(char* out, unsigned long value) {
    *out++ = static_cast<char>('0' + value / 10);
    *out++ = static_cast<char>('0' + value % 10);
    return out;
}

char* WriteDate(char* out, std::uint64_t dayNumber) {
    long year = 0;
    char month = 0;
    char day = 0;
    MetricsDate::gregorianparts(year, month, day, dayNumber);
    out = std::to_chars(out, out + 12, year).ptr;
    *out++ = '-';
    out = WriteTwoDigits(out, static_cast<unsigned char>(month));
    *out++ = '-';
    return WriteTwoDigits(out, static_cast<unsigned char>(day));
}

char* WriteTime(char* out, unsigned long second) {
    out = WriteTwoDigits(out, second / 3600);
    *out++ = ':';
    out = WriteTwoDigits(out, second / 60 % 60);
    *out++ = ':';
    return WriteTwoDigits(out, second % 60);
}

}  // namespace

void DateTimeText::Remember(std::uint64_t second) {
    char* end = WriteDate(text_, second / kSecondsPerDay);
    *end++ = ' ';
    end = WriteTime(end, static_cast<unsigned long>(second % kSecondsPerDay));
    size_ = static_cast<std::size_t>(end - text_);
    second_ = second;
}

char* DateTimeText::Write(char* out, std::uint64_t ticks, bool subseconds) {
    const std::uint64_t clamped = std::min(ticks, kLastTick);
    const std::uint64_t second = clamped / MetricsDateTime::subsecond_res;
    if (second != second_) Remember(second);
    std::memcpy(out, text_, kMaxSize);
    out += size_;
    if (!subseconds) return out;
    const auto fraction = static_cast<unsigned long>(clamped % MetricsDateTime::subsecond_res);
    *out++ = '.';
    out = WriteTwoDigits(out, fraction / 100);
    return WriteTwoDigits(out, fraction % 100);
}

std::string IsoTimeText(std::int64_t microseconds) {
    const auto since = static_cast<std::uint64_t>(std::max<std::int64_t>(microseconds, 0));
    char text[DateTimeText::kMaxSize + 8];
    const std::uint64_t ticks = kUnixEpochTicks + since / 1'000'000 * MetricsDateTime::subsecond_res;
    char* end = DateTimeText().Write(text, ticks, false);
    *std::find(text, end, ' ') = 'T';
    *end++ = '.';
    const auto fraction = static_cast<unsigned long>(since % 1'000'000);
    end = WriteTwoDigits(end, fraction / 10'000);
    end = WriteTwoDigits(end, fraction / 100 % 100);
    end = WriteTwoDigits(end, fraction % 100);
    *end++ = 'Z';
    return {text, end};
}

}  // namespace Metrics::detail
