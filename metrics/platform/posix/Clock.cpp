#include <cpuid.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>
#include <x86intrin.h>

#include <cstring>

#include "metrics/platform/Platform.h"
#include "metrics/platform/posix/CounterClock.h"

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

// The kernel compares its clocks with each other all the time, and leaves this one when it is not to be
// trusted.
bool IsClockOfTheKernel() {
    const int file =
        open("/sys/devices/system/clocksource/clocksource0/current_clocksource", O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    char name[8]{};
    const ssize_t length = read(file, name, sizeof name - 1);
    close(file);
    return length > 0 && std::strcmp(name, "tsc\n") == 0;
}

// At one rate whatever the processor's frequency, and also while it rests.
bool IsInvariant() {
    constexpr unsigned kPowerManagement = 0x8000'0007;
    constexpr unsigned kInvariant = 1U << 8;
    unsigned eax, ebx, ecx, edx;
    return __get_cpuid(kPowerManagement, &eax, &ebx, &ecx, &edx) != 0 && (edx & kInvariant) != 0;
}

// The time stamp counter. It is read without waiting for what comes before in the program, which would double
// the price: a reading may be some nanoseconds early.
struct ProcessorCounter {
    static std::uint64_t Counter() { return __rdtsc(); }
    static std::int64_t Nanoseconds() { return ReadNanoseconds(CLOCK_MONOTONIC); }
    static bool IsSteady() { return IsInvariant() && IsClockOfTheKernel(); }
};

constinit CounterClock<ProcessorCounter> counterClock;

[[maybe_unused]] const bool startsOverInChild = (OnForkChild([] { counterClock.StartOverInChild(); }), true);

}  // namespace

std::int64_t SystemTimeMilliseconds() {
    return ReadNanoseconds(CLOCK_REALTIME) / 1'000'000;
}

std::int64_t SystemTimeMicroseconds() {
    return ReadNanoseconds(CLOCK_REALTIME) / 1'000;
}

std::int64_t CoarseSystemTimeMilliseconds() {
    return ReadNanoseconds(CLOCK_REALTIME_COARSE) / 1'000'000;
}

std::int64_t PerformanceCounter() {
    return counterClock.HasGivenUp() ? ProcessorCounter::Nanoseconds() : counterClock.Now();
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
