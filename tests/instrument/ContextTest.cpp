#include "metrics/Context.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "metrics/ContextGuard.h"
#include "metrics/Scope.h"
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
    {
        const ContextGuard guard(lower);
        const ContextGuard again(lower);
        EXPECT_EQ(Context::Current(), &lower);
    }
    EXPECT_EQ(Context::Current(), &upper);
    { const ContextGuard current(upper); }
    EXPECT_EQ(Context::Current(), &upper) << "what was attached before stays attached";
}

// --- Identification
// ---------------------------------------------------------------------------------------------

TEST_F(ContextTest, IdentifiesItselfOnceWhenItsFirstScopeOpens) {
    LogKeeper log;
    {
        Context other = Context::Root("other");
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
    Context next(0, Context::Create(true));
    EXPECT_EQ(Recorded().TakeLinesWithContext(),
              (Lines{"@31 2 0>31", "@31 3", "@31 1 31>1", "@31 6 on a dead context",
                     "@31 7 on a dead context", "@31 1 0>2", "@2 2 0>2"}));
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
    EXPECT_EQ(TakeLines(), (Lines{"1 0>1", "2 0>1", "1 1>2", "1 1>3", "2 1>2", "3", "1 1>4", "2 1>3", "3",
                                  "2 1>4", "3", "3"}));
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
