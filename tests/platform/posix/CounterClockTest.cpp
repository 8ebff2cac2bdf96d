// The clock over a simulated machine, whose counter and system clock do what real ones do in months.
#include "metrics/platform/posix/CounterClock.h"

#include <gtest/gtest.h>

#include <random>

namespace Metrics::platform {
namespace {

struct Machine {
    double counter = 1e12;
    double time = 5e12;    // nanoseconds
    double rate = 1 / 3.;  // nanoseconds for a tick
    bool isSteady = true;
    bool isCut = false;  // every reading is interrupted
    std::mt19937 random{7};

    void Pass(double nanoseconds) {
        time += nanoseconds;
        counter += nanoseconds / rate;
    }
};

Machine machine;

// Each reading takes its time, part of it before and part of it after what it returns.
struct Simulated {
    template <class Value>
    static Value Read(const double& value) {
        machine.Pass(std::uniform_real_distribution<>(3, 15)(machine.random));
        if (machine.isCut) machine.Pass(3e6);
        const auto read = static_cast<Value>(value);
        machine.Pass(std::uniform_real_distribution<>(3, 15)(machine.random));
        return read;
    }
    static std::uint64_t Counter() { return Read<std::uint64_t>(machine.counter); }
    static std::int64_t Nanoseconds() { return Read<std::int64_t>(machine.time); }
    static bool IsSteady() { return machine.isSteady; }
};

class CounterClockTest : public testing::Test {
  protected:
    CounterClockTest() { machine = {}; }

    // Reads again and again, at distances of up to `gap`, for `seconds`: never back, and never further from
    // the system than `allowed` nanoseconds.
    void Run(double seconds, double gap, double allowed) {
        for (const double end = machine.time + seconds * 1e9; machine.time < end;) {
            machine.Pass(gap * std::pow(std::uniform_real_distribution<>(0, 1)(machine.random), 4));
            const double before = machine.time;
            const std::int64_t now = clock_.Now();
            ASSERT_GE(now, last_);
            ASSERT_GE(double(now), before - allowed);
            ASSERT_LE(double(now), machine.time + allowed);
            last_ = now;
        }
    }

    CounterClock<Simulated> clock_;
    std::int64_t last_ = 0;
};

TEST_F(CounterClockTest, FollowsARateThatDriftsAndIsSteered) {
    Run(1, 1e5, 200);
    for (const double change : {1e-7, -1e-6, 3e-5, -2e-4, 5e-4, -5e-4}) {
        machine.rate *= 1 + change;
        // Two lines may go by until the new rate is known.
        Run(1.2, 1e5, 200 + 120e6 * std::abs(change));
        Run(1, 1e5, 200);
    }
}

TEST_F(CounterClockTest, IsRightHoweverSeldomItIsAsked) {
    for (const double gap : {1e6, 4e7, 1.5e8, 6e8, 1e10, 3e11}) Run(gap * 200 / 1e9, gap, 300);
}

TEST_F(CounterClockTest, ComesRoundWhenTheCounterWentOnWithoutTheClockOrBeganAgain) {
    Run(1, 1e5, 200);
    for (const double slept : {0.05e9, 3e9, 4e12}) {
        machine.counter += slept / machine.rate;
        Run(0.5, 1e5, 0.4e9);
        Run(1, 1e5, 300);
    }
    machine.counter = 1e6;
    Run(0.5, 1e5, 0.4e9);
    Run(1, 1e5, 300);
    EXPECT_FALSE(clock_.HasGivenUp());
}

TEST_F(CounterClockTest, GivesUpACounterThatIsNotToBeHadOrKeepsJumping) {
    CounterClock<Simulated> other;
    machine.isSteady = false;
    other.Now();
    other.Now();
    EXPECT_TRUE(other.HasGivenUp());

    machine.isSteady = true;
    Run(1, 1e5, 200);
    for (int i = 0; i < 200 && !clock_.HasGivenUp(); ++i) {
        machine.counter += 3e5 / machine.rate;
        Run(0.1, 1e5, 0.4e9);
    }
    EXPECT_TRUE(clock_.HasGivenUp());
}

TEST_F(CounterClockTest, LearnsNothingFromReadingsThatWereInterrupted) {
    Run(1, 1e5, 200);
    machine.isCut = true;
    Run(1, 1e6, 300);
    machine.isCut = false;
    Run(1, 1e5, 300);
}

TEST_F(CounterClockTest, AChildBeginsAfreshWhateverTheParentWasDoing) {
    Run(1, 1e5, 200);
    clock_.StartOverInChild();
    machine.time -= 1e12;  // in a time of its own
    last_ = 0;
    Run(1, 1e5, 200);
}

}  // namespace
}  // namespace Metrics::platform
