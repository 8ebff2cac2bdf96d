#include "metrics/Scope.h"

#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <thread>

#include "metrics/Context.h"
#include "metrics/ContextGuard.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsMemoryUtils.h"
#include "metrics/MetricsTimer.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {

namespace {

// On a context that has identified itself already.
class ScopeTest : public RunningTest {
  protected:
    ScopeTest() {
        context_.OpenScope();
        Recorded().Take();
    }

    Context context_{0, Context::Create(true)};
};

TEST_F(ScopeTest, OpensAndClosesOnceAndItsEventsRepeatTheHeaderOfTheFirstOpening) {
    Scope scope;
    EXPECT_TRUE(scope.Open("work", nullptr, 0));
    EXPECT_FALSE(scope.Open("open", nullptr, 0));
    scope.Emit("rows", 3);
    scope.Close();
    scope.Close();
    EXPECT_FALSE(scope.Emit("late", 3));
    EXPECT_TRUE(scope.Open("again", nullptr, 0));
    scope.Close();
    const auto events = Recorded().Take();
    EXPECT_EQ(Recorder::ToLines(events), (Lines{"6 work", "10 rows=3", "7 work", "6 again", "7 again"}));
    for (const MetricsEvent& event : events) {
        EXPECT_EQ(event.SequenceNumber(), events[0].SequenceNumber());
        EXPECT_EQ(event.timestamp, events[0].timestamp);
        EXPECT_EQ(event.contextId, events[0].contextId);
        EXPECT_EQ(event.param2,
                  event.Type() == MetricsEventType::ScopeValue ? MetricsValue(3) : MetricsValue());
    }
}

TEST_F(ScopeTest, NeedsAnEnabledContext) {
    context_.Enable(false);
    Scope disabled("disabled");
    EXPECT_FALSE(disabled.IsOpen());
    context_.Enable(true);
    EXPECT_TRUE(disabled.Open("enabled", nullptr, 0));
    disabled.Close();
    context_.DetachFromThread();
    Scope none("none");
    EXPECT_FALSE(none.Open("none", nullptr, 0));
    EXPECT_EQ(TakeLines(), (Lines{"6 enabled", "7 enabled"}));
}

TEST_F(ScopeTest, WithoutAContextItIsCountedWhileSomebodyIsSubscribed) {
    const auto leftOut = [this] { return Manager().GetStatistics().leftOut; };
    const auto mark = [] {
        METRICS_SCOPE("one");
        METRICS_SCOPE_NAMED("two");
        Scope().Open("three", nullptr, 0);
        METRICS_SCOPE("held back", 0x40000);
    };
    mark();
    EXPECT_EQ(leftOut(), 0U);
    context_.DetachFromThread();
    mark();
    EXPECT_EQ(leftOut(), 3U);
    std::thread(mark).join();
    EXPECT_EQ(leftOut(), 6U) << "also when their thread has ended";
    Recorded().TakeAll();
    Manager().Shutdown();
    mark();
    EXPECT_EQ(leftOut(), 6U) << "nobody is subscribed";
}

TEST_F(ScopeTest, GateBitsDecide) {
    const struct {
        unsigned long long bits, mask;
        bool opens;
    } gates[] = {
        {0x40000, 0xFFF, false},
        {0x40000, 0x40000, true},
        {0x100000, 0, true},
        {0xFFFFFF, 0xFFF, false},  // bit 18 is among them
        {0xFFFBFFFF & ~0xF0000000ULL & ~0x11000ULL, 0, true},
        {1ULL << 28, 1ULL << 29, false},
        {1ULL << 63 | 1ULL << 28, 1ULL << 63, true},
    };
    for (const auto& gate : gates) {
        Manager().SetBitsAbsolute(gate.mask, false);
        const Scope scope("gated", gate.bits);
        EXPECT_EQ(scope.IsOpen(), gate.opens) << std::hex << gate.bits << " under " << gate.mask;
        EXPECT_EQ(Scope().EmitAttribute("key", 1, gate.bits), gate.opens);
    }
}

TEST_F(ScopeTest, AttributesAreCopiedAndEmptyOnesLeftOut) {
    std::string borrowed = "text";
    Scope scope("work");
    EXPECT_TRUE(scope.EmitAttribute("ref", MetricsValue::Ref(borrowed.c_str())));
    EXPECT_TRUE(scope.EmitAttribute("wide", MetricsValue::Ref(L"w\u00e9")));
    EXPECT_TRUE(scope.EmitAttribute("empty", ""));
    EXPECT_TRUE(scope.EmitAttribute("empty", L""));
    EXPECT_TRUE(scope.EmitAttribute("number", 7));
    borrowed = "gone";
    scope.Close();
    const auto events = Recorded().Take();
    EXPECT_EQ(Recorder::ToLines(events),
              (Lines{"6 work", "11 ref=text", "11 wide=w\xe9", "11 number=7", "7 work"}));
    EXPECT_EQ(events[1].param2.Kind(), MetricsValueType::String);
    EXPECT_EQ(events[2].param2.Kind(), MetricsValueType::String);
}

// --- Measurements
// ------------------------------------------------------------------------------------------------

// Uses the processor for 0.1 s; some systems count in steps of 16 ms.
void Work() {
    const std::clock_t end = std::clock() + CLOCKS_PER_SEC / 10;
    while (std::clock() < end) {
    }
}

TEST_F(ScopeTest, MeasuresTimeThenMemory) {
    std::vector<char> memory;
    Scope outer(MetricsValue("outer"), Scope::kElapsedTime);
    {
        Scope inner(MetricsValue("inner"), Scope::kElapsedTime | Scope::kMemory);
        memory.resize(std::size_t{64} << 20);
        Work();
    }
    outer.Close();
    Lines names;
    std::map<std::string, std::vector<double>> figures;
    for (const MetricsEvent& event : Recorded().Take()) {
        const std::string line = Line(event);
        names.push_back(line.ends_with('~') ? line : line.substr(0, line.find('=')));
        figures[event.param1.ToString(0)].push_back(event.param2.AsDouble());
    }
    ASSERT_EQ(names, (Lines{"6 outer",    "6 inner",       "6 time",       "10 clock=~",    "10 elapsed=~",
                            "10 proc=~",  "10 procexcl=~", "10 user=~",    "10 userexcl=~", "10 enter=~",
                            "10 leave=~", "7 time",        "6 mem",        "10 clock=~",    "10 ts=~",
                            "10 start",   "10 end",        "10 delta",     "7 mem",         "7 inner",
                            "6 time",     "10 clock=~",    "10 elapsed=~", "10 proc=~",     "10 procexcl=~",
                            "10 user=~",  "10 userexcl=~", "10 enter=~",   "10 leave=~",    "7 time",
                            "7 outer"}));
    // The inner scope's figures come first.
    EXPECT_LE(figures["clock"][2], figures["clock"][0]) << "the outer scope began first";
    EXPECT_GT(figures["elapsed"][0], 0.0);
    EXPECT_GE(figures["elapsed"][1], figures["elapsed"][0]);
    EXPECT_GT(figures["proc"][0], 0.0);
    EXPECT_GE(figures["proc"][1], figures["proc"][0]);
    EXPECT_DOUBLE_EQ(figures["proc"][0], figures["procexcl"][0]);
    EXPECT_NEAR(figures["procexcl"][1], figures["proc"][1] - figures["proc"][0], 1e-9);
    EXPECT_LE(figures["user"][0], figures["proc"][0] + 0.01);
    EXPECT_GT(figures["delta"][0], 1 << 20);
    EXPECT_EQ(figures["delta"][0], figures["end"][0] - figures["start"][0]);
}

TEST_F(ScopeTest, ProcessorTimeIsThatOfWhoWorksForTheContext) {
    context_.Close();
    {
        Context waits = Context::Root("2");  // counts from here, before its scope opens
        Work();
        const Context turns = Context::Root("3");
        std::thread([&waits] {
            Work();
            const ContextGuard guard(waits);
            Work();
        }).join();
        Work();
    }
    std::map<std::uint64_t, std::map<std::string, double>> figures;
    for (const MetricsEvent& event : Recorded().Take()) {
        figures[event.contextId.AsUInt64()][event.param1.ToString(0)] = event.param2.AsDouble();
    }
    // Where the system is busy and its clock that of the wall, less than the whole may have been used.
    EXPECT_GT(figures[2]["elapsed"], 0.2);
    EXPECT_LT(figures[2]["proc"], 0.29) << "its own and the guard's";
    EXPECT_GT(figures[2]["proc"], 0.01);
    EXPECT_LT(figures[3]["proc"], 0.19) << "not what was done elsewhere or for the others";
    EXPECT_GT(figures[3]["proc"], 0.01);
}

TEST_F(ScopeTest, MeasuresWallTimeUnlessProcessorTimeIsAskedForToo) {
    const Lines wall = {"6 work", "6 time", "10 clock=~", "10 elapsed=~", "7 time", "7 work"};
    {
        const Scope scope("work", Scope::kWallTime);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    const auto events = Recorded().Take();
    ASSERT_EQ(Recorder::ToLines(events), wall);
    const double clock = events[2].param2.AsDouble();
    const double elapsed = events[3].param2.AsDouble();
    EXPECT_GT(elapsed, 0.0199);
    EXPECT_GT(clock, 0);
    EXPECT_LE(clock + elapsed, MetricsTimer::GetApplicationElapsedSecs());
    EXPECT_NE(events[1].SequenceNumber(), events[0].SequenceNumber());
    EXPECT_EQ(events[2].SequenceNumber(), events[1].SequenceNumber());

    Manager().SetBits(Scope::kWallTime, false);
    Scope scope("work");
    scope.Close();
    EXPECT_EQ(TakeLines(), wall);
    scope.Open("again", nullptr, 0);
    context_.Close();
    scope.Close();
    EXPECT_EQ(TakeLines().back(), "7 again");
}

TEST_F(ScopeTest, ItsOwnBitsGoBeforeThoseOfTheMask) {
    Manager().SetBits(Scope::kWallTime, false);
    { METRICS_SCOPE("work", Scope::kElapsedTime); }
    EXPECT_EQ(TakeLines().size(), 12U);
    { METRICS_SCOPE("work", Scope::kMemory); }
    const Lines lines = TakeLines();
    ASSERT_EQ(lines.size(), 13U);
    EXPECT_EQ(lines[5], "6 mem") << "after the time";
}

TEST_F(ScopeTest, MemoryOfTheMachineAndOfTheProcess) {
    MetricsMemoryUtils::EmitGlobalMemoryMetrics("now");
    MetricsMemoryUtils::EmitProcessMemoryMetrics(nullptr);
    const auto events = Recorded().Take();
    EXPECT_EQ(Line(events.at(1)), "10 context=now");
    std::map<std::string, std::int64_t> figures;
    for (const MetricsEvent& event : events) figures[event.param1.ToString(0)] = event.param2.AsInt64();
    EXPECT_GT(figures["PhysicalTotal"], 64);
    EXPECT_GT(figures["PhysicalAvailable"], 0);
    EXPECT_LE(figures["PhysicalAvailable"], figures["PhysicalTotal"]);
    EXPECT_GT(figures["PageFileTotal"], 0);
    EXPECT_LE(figures["PageFileAvailable"], figures["PageFileTotal"]);
    EXPECT_LE(figures["MemoryLoad"], 100);
    EXPECT_GT(figures["Committed"], 1 << 20);
    EXPECT_GT(figures["Total"], figures["Committed"] + figures["Reserved"] + (std::int64_t{1} << 40));
}

TEST_F(ScopeTest, AContextMayCloseBeforeItsScopesAndItsChildren) {
    Recorded().Take();
    context_.DetachFromThread();
    {
        Context first = Context::Root("first");
        METRICS_SCOPE("a");
        Context child = Context::Child("child");
        METRICS_SCOPE("b");
        child.Close();
        first.Close();
        EXPECT_EQ(Context::Current(), nullptr);
        EXPECT_FALSE(Scope("later").IsOpen());
    }
    {
        const Context second = Context::Root("second");
        METRICS_SCOPE("c", Scope::kElapsedTime);
        EXPECT_EQ(Context::Current(), &second);
    }
    EXPECT_EQ(Scope::Innermost(), nullptr);
    EXPECT_EQ(
        Structure(Recorded().TakeLinesWithContext()),
        (Lines{"@0 1 0>2", "@2 2 0>2",   "@2 6 first",  "@2 6 a",     "@2 1 2>3", "@3 2 2>3",    "@3 6 child",
               "@3 6 b",   "@3 7 child", "@3 3",        "@2 7 first", "@2 3",     "@3 7 b",      "@2 7 a",
               "@0 1 0>4", "@4 2 0>4",   "@4 6 second", "@4 6 c",     "@4 7 c",   "@4 7 second", "@4 3"}));
}

TEST_F(ScopeTest, AScopeThatClosesElsewhereLeavesNothingBehind) {
    auto outer = std::make_unique<Scope>("outer");
    auto inner = std::make_unique<Scope>(MetricsValue("inner"), Scope::kElapsedTime);
    std::thread([&] {
        METRICS_SCOPE("other");
        inner.reset();
        METRICS_VALUE("unreached", 0);
    }).join();
    METRICS_VALUE("here", 1);
    EXPECT_EQ(Scope::Innermost(), outer.get());
    std::thread([&] { outer.reset(); }).join();
    METRICS_VALUE("nowhere", 1);
    EXPECT_EQ(Scope::Innermost(), nullptr);
    Scope next("next");
    EXPECT_EQ(Scope::Innermost(), &next);
    next.Close();
    const Lines lines = TakeLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "7 inner"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "10 here=1"), 1);
}

TEST_F(ScopeTest, AScopeOutlivesTheThreadThatOpenedIt) {
    std::unique_ptr<Scope> scope;
    std::thread([&] {
        Context context(0, Context::Create(true));
        scope = std::make_unique<Scope>(MetricsValue("left"), Scope::kElapsedTime);
    }).join();
    scope->Close();
    EXPECT_FALSE(scope->Open("again", nullptr, 0)) << "what it was opened on is gone";
    EXPECT_EQ(Recorded().TakeLinesWithContext().back(), "@2 7 left");
}

// --- One line each
// -----------------------------------------------------------------------------------------------

TEST_F(ScopeTest, MacrosMark) {
    int made = 0;
    const auto name = [&made] {
        ++made;
        return std::string("named");
    };
    {
        METRICS_SCOPE("literal");
        METRICS_VALUE("rows", 2 + 1);
        METRICS_SCOPE_NAMED(name());
        METRICS_VALUE("rows", 4);
    }
    METRICS_VALUE("beside", 5);
    context_.DetachFromThread();
    METRICS_VALUE("nowhere", ++made);
    { METRICS_SCOPE("held back", 0x40000); }
    EXPECT_EQ(made, 1);
    EXPECT_EQ(TakeLines(), (Lines{"6 literal", "10 rows=3", "6 named", "10 rows=4", "7 named", "7 literal",
                                  "10 beside=5"}));
}

TEST_F(ScopeTest, TellsItsPlaceWhereItsBitsOrTheMaskAskForIt) {
    Scope(MetricsValue("nowhere"), Scope::kLocation).Close();
    constexpr int kLine = __LINE__ + 1;
    { METRICS_SCOPE("asked", Scope::kLocation); }
    Manager().SetBits(Scope::kLocation, false);
    Scope masked;
    masked.Open("masked", "file.cpp", 12);
    masked.Close();
    EXPECT_EQ(TakeLines(),
              (Lines{"6 nowhere", "7 nowhere", "6 asked", "6 loc", std::string("10 func=") + __FILE__,
                     "10 line=" + std::to_string(kLine), "7 loc", "7 asked", "6 masked", "6 loc",
                     "10 func=file.cpp", "10 line=12", "7 loc", "7 masked"}));
}

}  // namespace
}  // namespace Metrics::Testing
