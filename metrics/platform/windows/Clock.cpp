#include <windows.h>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

// A file time counts 100 ns since 1601-01-01.
constexpr std::int64_t kFileTimePerMicrosecond = 10;
constexpr std::int64_t kFileTimePerMillisecond = 10'000;
constexpr std::int64_t kUnixEpochAsFileTime = 116'444'736'000'000'000;

std::int64_t Count(const FILETIME& time) {
    ULARGE_INTEGER value;
    value.LowPart = time.dwLowDateTime;
    value.HighPart = time.dwHighDateTime;
    return static_cast<std::int64_t>(value.QuadPart);
}

double Seconds(const FILETIME& time) {
    return static_cast<double>(Count(time)) / 1e7;
}

}  // namespace

std::int64_t SystemTimeMilliseconds() {
    return SystemTimeMicroseconds() / 1000;
}

std::int64_t SystemTimeMicroseconds() {
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    return (Count(now) - kUnixEpochAsFileTime) / kFileTimePerMicrosecond;
}

std::int64_t CoarseSystemTimeMilliseconds() {
    // The same clock as GetSystemTime, before it is taken apart into a calendar date.
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return (Count(now) - kUnixEpochAsFileTime) / kFileTimePerMillisecond;
}

std::int64_t PerformanceCounter() {
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);
    return count.QuadPart;
}

std::int64_t PerformanceFrequency() {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

ProcessorTime ThreadProcessorTime() {
    FILETIME created, ended, kernel{}, user{};
    GetThreadTimes(GetCurrentThread(), &created, &ended, &kernel, &user);
    return {Seconds(kernel) + Seconds(user), Seconds(user)};
}

}  // namespace Metrics::platform
