// The manager freed while it works, and what its contexts and scopes do to the next one.
#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/RunningTest.h"
#include "tests/support/Wine.h"

namespace Metrics::Testing {
namespace {

using FreeInstance = FreshTest;

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
    Manager().Subscribe(MetricsEventCategory::Events, [&](const auto&) {
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
