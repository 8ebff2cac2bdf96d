// The system's clock, read by way of the processor's counter, at the price of the counter.
#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <utility>

namespace Metrics::platform {

// Nanoseconds of a system clock that never goes back, computed from a counter of constant rate. `Source` has
// static functions: `Counter()`; `Nanoseconds()`, the clock that is followed; and `IsSteady()`, asked once,
// whether the system itself relies on the counter.
//
// Time is a straight line over the counter for a short while. Each line is continued by one whose slope leads
// back to the system's clock, so what it differs by (tens of nanoseconds) does not add up. A line has a
// start, at which its successor of that moment meets it exactly, and an end; outside of lines (at first, and
// after nobody has read the clock for a while) the system is asked. Lines are published a while before they
// start, so that all threads change over at the same count.
//
// Any thread may read. A counter that jumps or stops (the machine slept, or was moved) is noticed by the
// lines that don't meet; those run out, the system's clock serves until there are new ones, and after some
// such failures it serves for good.
template <class Source>
class CounterClock {
  public:
    constexpr CounterClock() = default;

    std::int64_t Now() {
        constexpr auto kAcquire = std::memory_order_acquire;
        const std::uint64_t counter = Source::Counter();
        const std::uint32_t newest = newest_.load(kAcquire);
        const SharedLine& line = lines_[newest % kLines];
        const std::uint64_t ticks = counter - line.start.load(kAcquire);
        const std::uint64_t slope = line.slope.load(kAcquire);
        const std::int64_t base = line.base.load(kAcquire);
        if (ticks >= line.freshFor.load(kAcquire) || newest_.load(std::memory_order_relaxed) != newest)
            [[unlikely]]
            return SlowNow(counter);
        return base + static_cast<std::int64_t>(ticks * slope >> kShift);
    }

    // Whether the counter is not to be had or proved bad: the system's clock is as good from now on.
    bool HasGivenUp() const { return hasGivenUp_.load(std::memory_order_relaxed); }

    // For the child of a fork, where whoever was about to draw a line may be missing.
    void StartOverInChild() {
        newest_.store(newest_.load(std::memory_order_relaxed) + kLines, std::memory_order_relaxed);
        for (SharedLine& line : lines_) line.Store({});
        before_ = {};
        rate_ = 0;
        nextTry_.store(0, std::memory_order_relaxed);
        isLearning_.store(false, std::memory_order_release);
    }

  private:
    static constexpr std::int64_t kMillisecond = 1'000'000;
    static constexpr std::int64_t kBaseline = 10 * kMillisecond;  // at least; the rate is known to 5 ppm then
    static constexpr std::int64_t kFresh = 50 * kMillisecond;
    static constexpr std::int64_t kSpan = 200 * kMillisecond;
    static constexpr std::int64_t kAhead = kMillisecond;
    static constexpr std::int64_t kCatchUp = kSpan;  // no sooner: it must not overshoot before the line ends
    static constexpr std::int64_t kMaxError = 100'000;
    static constexpr std::int64_t kMaxUncertainty = 1'000;
    static constexpr double kMaxRateChange = 1e-3;
    static constexpr int kMaxFailures = 10;
    static constexpr std::uint32_t kLines = 4;
    static constexpr int kShift = 32;  // ticks of a whole span times the slope fit into 64 bits

    struct Line {
        std::uint64_t start = 0;
        std::uint64_t freshFor = 0;  // ticks from the start, like the next
        std::uint64_t span = 0;
        std::uint64_t slope = 0;  // nanoseconds for a tick, times 2^kShift
        std::int64_t base = 0;    // the time at the start

        bool Covers(std::uint64_t counter) const { return counter - start < span; }
        std::int64_t At(std::uint64_t counter) const {
            return base + static_cast<std::int64_t>((counter - start) * slope >> kShift);
        }
        std::int64_t End() const { return At(start + span); }
    };

    // Whoever reads a field of a line that replaced the one they meant sees a newer number too.
    struct alignas(64) SharedLine {
        std::atomic<std::uint64_t> start{0}, freshFor{0}, span{0}, slope{0};
        std::atomic<std::int64_t> base{0};

        void Store(const Line& line) {
            constexpr auto kRelease = std::memory_order_release;
            start.store(line.start, kRelease);
            freshFor.store(line.freshFor, kRelease);
            span.store(line.span, kRelease);
            slope.store(line.slope, kRelease);
            base.store(line.base, kRelease);
        }
    };

    struct Reading {
        std::uint64_t counter = 0;
        std::int64_t time = 0;
        std::int64_t uncertainty = 0;
    };

    Line Load(std::uint32_t number) const {
        constexpr auto kAcquire = std::memory_order_acquire;
        const SharedLine& line = lines_[number % kLines];
        return {line.start.load(kAcquire), line.freshFor.load(kAcquire), line.span.load(kAcquire),
                line.slope.load(kAcquire), line.base.load(kAcquire)};
    }

    // The newest line that has started at `counter`; one without a span when there is none.
    Line LineAt(std::uint64_t counter) const {
        for (;;) {
            const std::uint32_t newest = newest_.load(std::memory_order_acquire);
            Line line = Load(newest);
            if (static_cast<std::int64_t>(counter - line.start) < 0) line = Load(newest - 1);
            if (newest_.load(std::memory_order_relaxed) != newest) continue;
            return static_cast<std::int64_t>(counter - line.start) < 0 ? Line() : line;
        }
    }

    [[gnu::noinline]] std::int64_t SlowNow(std::uint64_t counter) {
        Line line = LineAt(counter);
        std::int64_t time = line.At(counter);
        if (!line.Covers(counter)) {
            // The system's time counts if no line has begun by the time it is known.
            const std::int64_t system = Source::Nanoseconds();
            counter = Source::Counter();
            line = LineAt(counter);
            time = line.Covers(counter) ? line.At(counter) : std::max(system, line.End());
            if (failures_ >= kMaxFailures && time == system) hasGivenUp_ = true;
        }
        if (counter - line.start >= line.freshFor) LearnOnce(time);
        return time;
    }

    // One thread at a time; the others go on without.
    void LearnOnce(std::int64_t time) {
        if (time < nextTry_.load(std::memory_order_relaxed)) return;
        if (isLearning_.exchange(true, std::memory_order_acquire)) return;
        const Reading now = Take();
        nextTry_.store(now.time + kBaseline, std::memory_order_relaxed);
        if (now.uncertainty <= kMaxUncertainty) Learn(now);
        isLearning_.store(false, std::memory_order_release);
    }

    // The closest of three, since a thread may be interrupted anywhere.
    static Reading Take() {
        Reading best{0, 0, INT64_MAX};
        for (int i = 0; i < 3; ++i) {
            const std::int64_t earlier = Source::Nanoseconds();
            const std::uint64_t counter = Source::Counter();
            const std::int64_t later = Source::Nanoseconds();
            const std::int64_t half = (later - earlier + 1) / 2;
            if (half < best.uncertainty) best = {counter, earlier + half, half};
        }
        return best;
    }

    void Learn(const Reading& now) {
        const Reading before = std::exchange(before_, now);
        if (before.counter == 0) {
            if (!Source::IsSteady()) failures_ = kMaxFailures;
            return;
        }
        const double rate = double(now.time - before.time) / double(now.counter - before.counter);
        const bool isSteady = rate_ == 0 || std::abs(rate / rate_ - 1) < kMaxRateChange;
        rate_ = isSteady ? rate : 0;
        if (isSteady && failures_ < kMaxFailures) Draw(now);
    }

    void Draw(const Reading& now) {
        const std::uint64_t start = now.counter + Ticks(kAhead);
        const std::int64_t aim = now.time + kAhead;
        const std::uint32_t newest = newest_.load(std::memory_order_relaxed);
        const Line last = Load(newest);
        const bool goesOn = last.Covers(start);
        if (!goesOn && last.End() > aim + kMaxError) return;  // told already; the system has yet to get there
        // Where no line can be continued the new one is not behind what the system has told.
        const std::int64_t base = goesOn ? last.At(start) : std::max(aim + 2 * now.uncertainty, last.End());
        const std::int64_t error = base - aim;
        if (std::abs(error) > kMaxError) return Fail(last);
        if (goesOn) failures_ = 0;
        const double slope = rate_ * (1 - double(error) / double(kCatchUp));
        const Line line{start, Ticks(kFresh), Ticks(kSpan),
                        static_cast<std::uint64_t>(std::ldexp(slope, kShift)), base};
        if (Source::Counter() - now.counter > Ticks(kAhead / 2)) return;  // interrupted: it would come late
        lines_[(newest + 1) % kLines].Store(line);
        newest_.store(newest + 1, std::memory_order_release);
    }

    // The line is served to its end, for whoever has read it already.
    void Fail(const Line& last) {
        rate_ = 0;
        ++failures_;
        nextTry_.store(last.End(), std::memory_order_relaxed);
    }

    std::uint64_t Ticks(std::int64_t nanoseconds) const {
        return static_cast<std::uint64_t>(double(nanoseconds) / rate_);
    }

    std::atomic<std::uint32_t> newest_{0};
    SharedLine lines_[kLines];
    std::atomic<bool> isLearning_{false};
    std::atomic<std::int64_t> nextTry_{0};
    std::atomic<int> failures_{0};  // since a line was last continued
    std::atomic<bool> hasGivenUp_{false};
    // Of whoever learns.
    Reading before_;
    double rate_ = 0;  // nanoseconds for a tick
};

}  // namespace Metrics::platform
