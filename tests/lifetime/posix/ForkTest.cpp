// The child of a fork: it marks, it ends, it starts again; the parent is not affected.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
#include "tests/lifetime/Text.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/FolderTest.h"
#include "tests/support/Memory.h"
#include "tests/support/RunningTest.h"

// A child that starts threads of its own is what is tested here.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "die_after_fork=0";
}

// In a child the leak checker misses what the stacks of its parent's other threads held.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}

namespace Metrics::Testing {
namespace {

using Mode = MetricsOutput::Mode;
using Format = MetricsOutput::Format;

void Mark(const char* name) {
    Context context = Context::Root(name);
    METRICS_SCOPE("scope");
    METRICS_VALUE("value", 1);
}

class Fork : public RunningTest {
  protected:
    // The exit code of a child, or -1 for one that hung or was killed by a signal.
    int Wait(pid_t child) {
        int status = 0;
        if (!Manager().WaitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }, 30000)) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    void InChild(const std::function<void()>& work) {
        const pid_t child = fork();
        if (child == 0) {
            work();
            _exit(HasFailure() ? 4 : 3);
        }
        EXPECT_EQ(Wait(child), 3);
    }

    static bool StartsAgain() {
        const Session session;
        Recorder recorder;
        Mark("child");
        return !recorder.Take().empty();
    }
};

TEST_F(Fork, TheChildsMarksAreDroppedUntilItStartsAgain) {
    MetricsOutput parents(Mode::Borrowed, Format::RawUnordered);
    parents.OpenFile("fork-parent.csv", 0);
    Context context = Context::Root("parent");
    Scope scope("open across the fork");
    InChild([&] {
        Mark("child too early");
        METRICS_VALUE("child too early", 1);
        scope.Close();
        context.Close();
        Manager().SetBits(2, true);
        Manager().Log("child");
        Manager().Shutdown();
        EXPECT_EQ(Manager().GetState() & MetricsManager::Running, 0U);
        EXPECT_EQ(Manager().GetStatistics().queued, 0U);
        {
            Session session;
            MetricsOutput output(Mode::Borrowed, Format::RawUnordered);
            output.OpenFile("fork-child.csv", 0);
            Mark("child");
            parents.Finish(0);
            parents.Close();
        }
        EXPECT_EQ(Count(ReadFile("fork-child.csv"), ",6,\"child\""), 1U);
        EXPECT_EQ(Count(ReadFile("fork-child.csv"), "early"), 0U);
    });
    scope.Close();
    parents.Close();
    const std::string text = ReadFile("fork-parent.csv");
    EXPECT_EQ(Count(text, ",6,\"parent\""), 1U) << "the child wrote what it had inherited";
    EXPECT_EQ(Count(text, ",7,\"open across the fork\""), 1U);
    EXPECT_EQ(Count(text, "child"), 0U);
}

// Outputs, contexts and a session that came along are destroyed where main of the child returns.
TEST_F(Fork, TheChildUnwinds) {
    const pid_t child = [] {
        Session session;
        MetricsOutput output(Mode::Borrowed, Format::RawUnordered);
        output.OpenFile("fork-unwind.csv", 0);
        MetricsSubscription subscription(MetricsEventCategory::Events, [](const auto&) {});
        Context context = Context::Root("unwinds");
        METRICS_SCOPE("unwinds");
        return fork();
    }();
    if (child == 0) _exit(3);
    EXPECT_EQ(Wait(child), 3);
    EXPECT_NE(Count(ReadFile("fork-unwind.csv"), ",7,\"unwinds\""), 0U);
}

TEST_F(Fork, WhateverOtherThreadsAreDoing) {
    if (kSanitized) GTEST_SKIP() << "a sanitizer's own locks may be held by threads that stay in the parent";
    const auto marking = Repeat(2, [](unsigned) { Mark("busy"); });
    const auto subscribing = Repeat(1, [](unsigned) {
        MetricsSubscription subscription(MetricsEventCategory::Events, [](const auto&) {});
        std::thread([] { Mark("short"); }).join();
    });
    const auto restarting = Repeat(1, [this](unsigned) {
        Manager().Shutdown();
        Manager().SetLogDelegate([](const std::string&) {});
        Manager().Start();
    });
    for (int i = 0; i < 50; ++i) {
        InChild([] {
            Mark("child");
            EXPECT_TRUE(StartsAgain());
        });
    }
}

TEST_F(Fork, InACallback) {
    if (kThreadSanitized)
        GTEST_SKIP() << "the sanitizer crashes where a thread of the parent ends in the child";
    for (const std::string way : {"return", "throw", "start", "exit"}) {
        std::atomic<pid_t> child{0};
        const int id = Manager().Subscribe(MetricsEventCategory::Events, [&](const auto&) {
            if (child != 0) return;
            const pid_t forked = fork();
            if (forked != 0) {
                child = forked;
                return;
            }
            child = -1;
            if (way == "throw") throw 1;
            if (way == "start") _exit(StartsAgain() ? 0 : 4);
            if (way == "exit") std::_Exit(0);
        });
        EXPECT_TRUE(Manager().WaitUntil([&] { return child != 0; }, 20000));
        EXPECT_EQ(Wait(child), 0) << way;  // the thread that came along ends, and with it the process
        Manager().Unsubscribe(id);
    }
    Context::Create(true);
    EXPECT_EQ(TakeLines(), Lines{"1 0>1"});
}

}  // namespace
}  // namespace Metrics::Testing
