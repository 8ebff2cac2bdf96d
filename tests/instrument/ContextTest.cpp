#include "metrics/Context.h"

#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <thread>

#include "metrics/ContextGuard.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsValueBuffer.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using ContextTest = RunningTest;

TEST_F(ContextTest, LivesNestsAndClosesOnceInAnyOrder) {
    auto parent = std::make_unique<Context>(0, Context::Create(true));
    auto child = std::make_unique<Context>(parent->GetContextId(), Context::Create(false));
    EXPECT_EQ(child->GetParentContextId(), 1U);
    {
        Context root(0, Context::Create(true));
        parent->Close();
        parent->Close();
        parent.reset();
        child.reset();
        EXPECT_EQ(Context::Current(), &root);
    }
    EXPECT_EQ(Context::Current(), nullptr);
    // A creation speaks for who creates; what a context says of itself carries its own id.
    EXPECT_EQ(Recorded().TakeLinesWithContext(), (Lines{"@0 1 0>1", "@1 2 0>1", "@1 1 1>2", "@2 2 1>2",
                                                        "@2 1 0>3", "@3 2 0>3", "@1 3", "@2 3", "@3 3"}));
}

TEST_F(ContextTest, WithoutIdItIsCurrentAndSilentAndHasNoChildren) {
    Context context(0, 0);
    EXPECT_FALSE(context.IsEnabled());
    EXPECT_EQ(Context::Current(), &context);
    std::vector<unsigned long long> ids;
    for (const bool root : {false, true}) {
        Context::Create(root, [&ids](unsigned long long id) { ids.push_back(id); });
    }
    EXPECT_EQ(ids, (std::vector<unsigned long long>{0, 1}));
    context.OpenScope();
    EXPECT_FALSE(Scope("work").IsOpen());
    context.Close();
    EXPECT_EQ(TakeLines(), Lines{"1 0>1"}) << "of the root";
}

TEST_F(ContextTest, AttachedItStandsOnTopOnceAndTakesOverTheFlagBelow) {
    Context lower(0, Context::Create(true));
    Context upper(0, Context::Create(true));
    lower.Enable(false);
    upper.AttachToThread();
    EXPECT_FALSE(upper.IsEnabled());
    lower.Enable(true);
    Context(0, 0).DetachFromThread();  // its own flag was taken over as well, and has no effect any more
    upper.AttachToThread();
    EXPECT_TRUE(upper.IsEnabled());
    lower.AttachToThread();
    lower.AttachToThread();
    EXPECT_EQ(Context::Current(), &lower);
    lower.DetachFromThread();
    EXPECT_EQ(Context::Current(), &upper);
    EXPECT_EQ(lower.GetThreadId(), 0);
    EXPECT_NE(upper.GetThreadId(), 0);
}

// --- Identification
// ---------------------------------------------------------------------------------------------

TEST_F(ContextTest, IdentifiesItselfOnceWhenItsFirstScopeOpens) {
    LogKeeper log;
    {
        Context other(0, Context::Create(true));
        Context context(0, Context::Create(true));
        Recorded().Take();
        context.SetName("request");
        context.AddAttribute("b", "first");
        context.AddAttribute("a", "1");
        context.AddAttribute("b", "2");
        context.AddAttribute("empty", "");
        context.AddNameValue("y", "4");
        context.AddNameValue("x", "3");
        other.AttachToThread();
        context.OpenScope();
        context.OpenScope();
        context.AttachToThread();
        Scope scope("work");
        context.AddAttribute("late", "5");
        context.AddNameValue("later", "6");
    }
    EXPECT_EQ(log.Take(),
              Lines{"MX: Context: an attribute or name/value was added after the context's own scope had "
                    "opened; it is not written"});
    EXPECT_EQ(Recorded().TakeLinesWithContext(),
              (Lines{"@2 11 pid=~",   "@2 11 tid=~",      "@2 11 cid=1",   "@2 11 comp=core",
                     "@2 11 a=1",     "@2 11 b=2",        "@2 6 request",  "@2 10 x=3",
                     "@2 10 y=4",     "@2 6 work",        "@2 7 work",     "@2 6 time",
                     "@2 10 clock=~", "@2 10 elapsed=~",  "@2 10 proc=~",  "@2 10 procexcl=~",
                     "@2 10 user=~",  "@2 10 userexcl=~", "@2 10 enter=~", "@2 10 leave=~",
                     "@2 7 time",     "@2 7 request",     "@2 3",          "@1 3"}));
}

// The time in the form of the attribute; all of them have one length, so that texts compare like times.
std::string Now() {
    const auto now = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    const std::time_t time = std::chrono::system_clock::to_time_t(seconds);
    char text[32];
    const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.", std::gmtime(&time));
    const std::string fraction = std::to_string(1'000'000 + (now - seconds).count()).substr(1);
    return std::string(text, size) + fraction + "Z";
}

TEST_F(ContextTest, MeasuresWallTimeAndTellsWhenARootBeganWhileTheMaskHasIt) {
    const auto attributeAt = [](const std::vector<MetricsEvent>& events) {
        for (const MetricsEvent& event : events) {
            if (Line(event).starts_with("11 at=")) return event.param2.ToString(0);
        }
        return std::string();
    };
    Manager().SetBits(Scope::kWallTime, false);
    {
        const std::string before = Now();
        Context root = Context::Root("root");
        const std::string after = Now();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        root.OpenScope();
        const auto events = Recorded().Take();
        EXPECT_EQ(Recorder::ToLines(events).at(5), "11 comp=core");
        EXPECT_EQ(Recorder::ToLines(events).at(6).substr(0, 6), "11 at=");
        EXPECT_LE(before, attributeAt(events));
        EXPECT_GE(after, attributeAt(events));
        const Context child = Context::Child("child");
    }
    const auto events = Recorded().Take();
    EXPECT_EQ(attributeAt(events), "") << "not of a child";
    EXPECT_EQ(Recorder::ToLines(events),
              (Lines{"1 1>2", "2 1>2", "11 pid=~", "11 tid=~", "11 cid=2", "11 comp=core", "6 child",
                     "6 time", "10 clock=~", "10 elapsed=~", "7 time", "7 child", "3", "6 time", "10 clock=~",
                     "10 elapsed=~", "7 time", "7 root", "3"}));
    EXPECT_GE(events.at(15).param2.AsDouble(), 0.0199) << "from where the context began";
    {
        Context root(0, Context::Create(true));
        const std::string before = Now();
        root.OpenScope();
        EXPECT_LE(before, attributeAt(Recorded().Take())) << "one without a factory begins with its scope";
        Manager().SetBits(Scope::kElapsedTime, false);
        Context timed = Context::Root("timed");
        timed.OpenScope();
    }
    EXPECT_EQ(attributeAt(Recorded().Take()), "");
}

TEST_F(ContextTest, MadeByAFactoryItOpensItsScopeAtTheLatestForWhatComesUnderIt) {
    const auto take = [this] { return Structure(TakeLines()); };
    LogKeeper log;
    {
        Context root = Context::Root("root");
        root.AddAttribute("a", "1");
        EXPECT_EQ(take(), (Lines{"1 0>1", "2 0>1"})) << "there is time for attributes";
        Context::Create(true);
        EXPECT_EQ(take(), Lines{"1 0>2"}) << "a root is not under it";
        Context child(1, Context::Create(false));
        EXPECT_EQ(take(), (Lines{"11 a=1", "6 root", "1 1>3", "2 1>3"}));
        root.AddAttribute("late", "1");
        EXPECT_EQ(log.Take().size(), 1U);
        Context::Child("grandchild").AddAttribute("b", "2");
    }
    EXPECT_EQ(take(),
              (Lines{"1 3>4", "2 3>4", "11 b=2", "6 grandchild", "7 grandchild", "3", "3", "7 root", "3"}))
        << "one made by a constructor has no scope unless it is asked for";
    Context root = Context::Root("merges");
    MetricsValueBuffer buffer;
    buffer.AppendHeader({.eventCount = 0});
    Manager().MergeRemoteEvents(std::make_shared<MetricsValueBuffer>(buffer.Bytes()));
    EXPECT_EQ(take(), (Lines{"1 0>5", "2 0>5"})) << "nothing was merged";
    MetricsValueBuffer filled;
    filled.AppendHeader({.eventCount = 1});
    MetricsEvent(Opaque64(MetricsEvent::PackHeader(MetricsEventType::ScopeOpen, 1, 1)), 0, {}, "remote", {})
        .Write(filled);
    Manager().MergeRemoteEvents(std::make_shared<MetricsValueBuffer>(filled.Bytes()));
    EXPECT_EQ(take(), (Lines{"6 merges", "6 remote"}));
    root.Enable(false);
    { const Context disabled = Context::Child("disabled"); }
    EXPECT_EQ(take(), Lines{});
}

TEST_F(ContextTest, AValueOfItsOwnStandsBesideItsScopes) {
    {
        Context context = Context::Root("c");
        METRICS_VALUE("early", 1);
        EXPECT_TRUE(context.Emit("more", 2));
        Recorded().Take();
        {
            METRICS_SCOPE("a");
            EXPECT_TRUE(context.Emit("within", 3));
            METRICS_VALUE("scoped", 4);
            METRICS_SCOPE("b", Scope::kElapsedTime);
        }
        METRICS_VALUE("alone", 5);
        {
            METRICS_SCOPE("plain");
            context.Emit("again", 6);
        }
        Scope open("open");
        context.Emit("last", 7);
        {
            const Context child = Context::Child("child");
            METRICS_VALUE("of the child", 8);
        }
        context.Close();
        EXPECT_FALSE(context.Emit("late", 9));
    }
    EXPECT_EQ(Structure(Recorded().TakeLinesWithContext()),
              (Lines{"@1 6 c",        "@1 10 early=1",  "@1 10 more=2",
                     "@1 6 a",        "@1 10 scoped=4", "@1 6 b",
                     "@1 7 b",        "@1 7 a",         "@1 10 within=3",
                     "@1 10 alone=5", "@1 6 plain",     "@1 7 plain",
                     "@1 10 again=6", "@1 6 open",      "@1 1 1>2",
                     "@2 2 1>2",      "@2 6 child",     "@2 10 of the child=8",
                     "@2 7 child",    "@2 3",           "@1 10 last=7",
                     "@1 7 c",        "@1 3",           "@1 7 open"}));
    EXPECT_EQ(Manager().GetStatistics().leftOut, 0U);
    METRICS_VALUE("of nobody", 1);
    Context(0, Context::Create(true)).Emit("without its scope", 2);
    EXPECT_EQ(Manager().GetStatistics().leftOut, 2U);
    EXPECT_FALSE(Context(0, 0).Emit("disabled", 3));
}

TEST_F(ContextTest, IdentifiesTheThreadsComponentAndTakesItsAnnouncement) {
    Manager().SetComponentId(4);
    Context context(0, Context::Create(true));
    Scope("first");
    Manager().SetComponentId(2);
    Scope("second");
    Scope("third");
    Lines lines = TakeLines();
    std::erase_if(lines, [](const std::string& line) {
        return !line.starts_with("6 ") && !line.starts_with("11 comp=");
    });
    EXPECT_EQ(lines, (Lines{"11 comp=serv", "6 cxt", "6 first", "11 comp=desk", "6 second", "6 third"}));
}

// --- Other threads
// -----------------------------------------------------------------------------------------------

TEST_F(ContextTest, ADestructionElsewhereIsLoggedAndLeavesAStaleEntry) {
    LogKeeper log;
    auto context = std::make_unique<Context>(0, 0x1F);
    context->SetThreadId(0x10);
    const std::string description = "<ptr=" + testing::PrintToString(context.get()) +
                                    ", tid=10, root=true, id=1f, parent id=0, enabled=1>";
    std::thread([&] { context.reset(); }).join();
    EXPECT_EQ(
        log.Take(),
        Lines{"MX: Context Destruct: Error: we're attached to a thread, but we're being destructed by a "
              "different thread (Java garbage collection?): cxt=" +
              description});
    // The entry stays with its id and its flag.
    EXPECT_EQ(Context::Current(), nullptr);
    EXPECT_EQ(Context::Create(false), 1U);
    Scope scope("on a dead context");
    EXPECT_TRUE(scope.IsOpen());
    scope.Close();
    { const Context next(0, Context::Create(true)); }
    EXPECT_FALSE(Scope("after it was covered").IsOpen());
    EXPECT_EQ(Recorded().TakeLinesWithContext(),
              (Lines{"@31 2 0>31", "@31 3", "@31 1 31>1", "@31 6 on a dead context",
                     "@31 7 on a dead context", "@31 1 0>2", "@2 2 0>2", "@2 3"}));
}

TEST_F(ContextTest, OfContextsDestroyedElsewhereOnlyTheTopOfTheStackStays) {
    auto lower = std::make_unique<Context>(0, Context::Create(true));
    auto upper = std::make_unique<Context>(0, Context::Create(true));
    const Scope scope("keeps what it refers to");
    std::thread([&] { lower.reset(); }).join();
    upper->AttachToThread();  // whatever is taken or left
    upper.reset();
    EXPECT_EQ(Context::Create(false, [](unsigned long long id) { EXPECT_EQ(id, 3U); }), 3U);
    EXPECT_EQ(Recorded().TakeLines().back(), "1 0>3");
}

TEST_F(ContextTest, AThreadThatEndsWithAContextLeavesNothingToItsSuccessor) {
    std::vector<std::unique_ptr<Context>> kept;
    for (int i = 0; i < 50; ++i) {
        std::thread([&kept] {
            EXPECT_EQ(Context::Current(), nullptr);
            kept.push_back(std::make_unique<Context>(0, Context::Create(true)));
            kept.back()->SetThreadId(0);  // or its end elsewhere is logged
        }).join();
    }
}

TEST_F(ContextTest, ATicketMovesWorkToAnotherThread) {
    {
        Context parent = Context::Root("parent");
        ContextTicket used = Context::Hand("chunk");
        ContextTicket dropped = Context::Hand("never");
        EXPECT_EQ(used.GetContextId(), 2U);
        std::thread([ticket = std::move(used)]() mutable {
            Context chunk(std::move(ticket));
            EXPECT_EQ(ticket.GetContextId(), 0U);
            EXPECT_EQ(chunk.GetParentContextId(), 1U);
        }).join();
        dropped = Context::Hand("instead");
    }
    // The parent stands there before its children, and the ticket that nobody redeems leaves no scope.
    EXPECT_EQ(Structure(TakeLines()),
              (Lines{"1 0>1", "2 0>1", "6 parent", "1 1>2", "1 1>3", "2 1>2", "6 chunk", "7 chunk", "3",
                     "1 1>4", "2 1>3", "3", "2 1>4", "3", "7 parent", "3"}));
}

TEST_F(ContextTest, SomethingElseIsNoContext) {
    LogKeeper log;
    alignas(Context) unsigned char memory[sizeof(Context)] = {};
    const auto* broken = reinterpret_cast<const Context*>(memory);
    broken->Validate();
    EXPECT_EQ(log.Take(),
              Lines{"MX: Context Error: invalid object: cxt=<ptr=" + testing::PrintToString(broken) + ">"});
}

}  // namespace
}  // namespace Metrics::Testing
