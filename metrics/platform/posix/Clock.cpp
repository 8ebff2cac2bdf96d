#include <sys/resource.h>
#include <time.h>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

std::int64_t ReadNanoseconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

std::int64_t SystemTimeMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * std::int64_t{1000} + now.tv_nsec / 1'000'000;
}

std::int64_t PerformanceCounter() {
    return ReadNanoseconds(CLOCK_MONOTONIC);
}

std::int64_t PerformanceFrequency() {
    return kNanosecondsPerSecond;
}

ProcessorTime ThreadProcessorTime() {
    // The finer clock is read last, so that the user part never exceeds the whole.
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    const std::int64_t total = ReadNanoseconds(CLOCK_THREAD_CPUTIME_ID);
    return {static_cast<double>(total) / static_cast<double>(kNanosecondsPerSecond), Seconds(usage.ru_utime)};
}

}  // namespace Metrics::platform
