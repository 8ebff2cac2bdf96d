// Start and Shutdown, from many threads and many times; marks outside of a run; the manager freed while it
// works, and what its contexts and scopes do to the next one.
#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/RunningTest.h"
#include "tests/support/Wine.h"

namespace Metrics::Testing {
namespace {

using StartTest = FreshTest;
using Outside = FreshTest;
using FreeInstance = FreshTest;

constexpr auto kEvents = MetricsEventCategory::Events;

TEST_F(StartTest, FromManyThreadsAtOnceThereIsOneWorker) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> workers{0};
        Manager().SetThreadInitFunction([&] { ++workers; });
        AtOnce(8, [&](int) {
            Manager().Start();
            EXPECT_NE(Manager().GetState() & MetricsManager::Running, 0U);
        });
        EXPECT_EQ(workers, 1);
        AtOnce(6, [&](int thread) {
            for (int i = 0; i < 20; ++i) {
                if ((thread + i) % 2 == 0) {
                    Manager().Start();
                } else {
                    Manager().Shutdown();
                }
                Manager().Unsubscribe(Manager().Subscribe(kEvents, [](const auto&) {}));
            }
        });
        Manager().Shutdown();
        EXPECT_EQ(Manager().GetState(), 0U);
    }
}

TEST_F(StartTest, AThousandTimesInARowNothingIsLost) {
    Manager().SetState(MetricsManager::Collecting, true);
    std::atomic<int> seen{0};
    for (int i = 1; i <= 1000; ++i) {
        Manager().Start();
        Manager().Start();
        Manager().Subscribe(kEvents, [&](const auto& batch) {
            for (const MetricsEvent& event : batch) seen += event.Type() == MetricsEventType::ContextCreate;
        });
        Context::Create(true);
        Manager().Shutdown();
        Manager().Shutdown();
        ASSERT_EQ(seen, i);
    }
}

void Mark() {
    Context context = Context::Root("outside");
    METRICS_SCOPE("outside");
    METRICS_VALUE("outside", 1);
    MetricsManager::GetInstance().SetBits(1, true);
}

TEST_F(Outside, MarksWithoutAWorkerAreDroppedAndCounted) {
    Recorder recorder;
    Mark();
    Manager().SetState(MetricsManager::Collecting, true);
    Mark();
    const std::uint64_t before = Manager().GetStatistics().dropped;
    EXPECT_GT(before, 2U);
    Manager().Start();
    EXPECT_EQ(recorder.TakeLines(), Lines{});
    Context early = Context::Root("early");
    Manager().Shutdown();
    Mark();
    early.Close();
    EXPECT_GT(Manager().GetStatistics().dropped, before);
    EXPECT_EQ(Manager().GetStatistics().queued, 0U);
}

// Opened by one run, closed in the next one: the manager is the same, so is what the ids mean.
TEST_F(Outside, AContextMayOutliveARun) {
    Manager().SetState(MetricsManager::Collecting, true);
    Manager().Start();
    Context context(0, Context::Create(true));
    Scope scope("long");
    Manager().Shutdown();
    Manager().Start();
    Recorder recorder;
    scope.Close();
    context.Close();
    EXPECT_EQ(recorder.TakeLines(),
              (Lines{"7 long", "6 time", "10 clock=~", "10 elapsed=~", "10 proc=~", "10 procexcl=~",
                     "10 user=~", "10 userexcl=~", "10 enter=~", "10 leave=~", "7 time", "7 cxt", "3"}));
}

void StartCollecting() {
    MetricsManager::GetInstance().Start();
    MetricsManager::GetInstance().SetState(MetricsManager::Collecting, true);
}

TEST_F(FreeInstance, WithoutShutdownWhileOthersMark) {
    {
        const auto threads = Repeat(3, [](unsigned) {
            Context context = Context::Root("work");
            context.AddAttribute("key", "value");
            METRICS_SCOPE("scope");
            METRICS_VALUE("value", 1);
            Context child = Context::Child("part");
            METRICS_SCOPE("inner");
        });
        for (int i = 0; i < 200; ++i) {
            StartCollecting();
            MetricsManager::FreeInstance();
        }
    }
    // The last workers end on their own; the process must not end them there inside the heap.
    if (UnderWine()) std::this_thread::sleep_for(std::chrono::milliseconds(300));
}

TEST_F(FreeInstance, InACallback) {
    StartCollecting();
    std::atomic<bool> freed{false};
    Manager().Subscribe(kEvents, [&](const auto&) {
        if (freed) return;
        MetricsManager::FreeInstance();
        freed = true;
    });
    while (!freed) std::this_thread::yield();
    StartCollecting();
    Recorder recorder;
    Context::Create(true);
    EXPECT_EQ(recorder.TakeLines(), Lines{"1 0>1"});
}

TEST_F(FreeInstance, WhatBelongedToTheOldManagerIsSilentUnderTheNewOne) {
    StartCollecting();
    auto oldContext = std::make_unique<Context>(0, Context::Create(true));
    auto oldScope = std::make_unique<Scope>(MetricsValue("old"), Scope::kElapsedTime);
    Scope oldClosed("old too");
    oldClosed.Close();
    std::optional<ContextTicket> oldTicket = Context::Hand("old");
    std::optional<ContextTicket> oldUsed = Context::Hand("old");
    MetricsManager::FreeInstance();
    StartCollecting();
    Recorder recorder;
    recorder.Take();
    {
        Context context(0, Context::Create(true));  // has the id that the old one had
        oldScope->Emit("late", 1);
        METRICS_VALUE("nowhere", 1);
        oldScope.reset();
        EXPECT_FALSE(oldClosed.Open("again", nullptr, 0));
        oldContext->AttachToThread();
        EXPECT_EQ(Context::Current(), &context);
        oldContext->OpenScope();
        oldTicket.reset();
        EXPECT_EQ(Context(std::move(*oldUsed)).GetContextId(), 0U);
        oldContext.reset();
    }
    EXPECT_EQ(recorder.TakeLinesWithContext(), (Lines{"@0 1 0>1", "@1 2 0>1", "@1 3"}));
}

TEST_F(FreeInstance, ASessionOrASubscriptionThatOutlivesItSaysGoodbyeToNobody) {
    {
        Session session;
        Recorder recorder;
        MetricsManager::FreeInstance();
    }
    LogKeeper log;  // makes a manager, which nobody has told anything
    EXPECT_EQ(Manager().GetState(), 0U);
    EXPECT_EQ(Manager().GetStatistics().dropped, 0U);
}

}  // namespace
}  // namespace Metrics::Testing
