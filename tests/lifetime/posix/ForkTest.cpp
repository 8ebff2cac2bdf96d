// The child of a fork: it marks, it ends, it starts again; the parent is not affected.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
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

using Fork = RunningTest;
using Mode = MetricsOutput::Mode;
using Format = MetricsOutput::Format;

// The exit code of a child, or -1 for one that hung or was killed by a signal.
int Wait(pid_t child) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (int status = 0;;) {
        if (waitpid(child, &status, WNOHANG) == child) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (std::chrono::steady_clock::now() > limit) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

int InChild(const std::function<int()>& work) {
    const pid_t child = fork();
    if (child == 0) _exit(work());
    return Wait(child);
}

void Mark(const char* name) {
    Context context = Context::Root(name);
    METRICS_SCOPE("scope");
    METRICS_VALUE("value", 1);
}

std::string Text(const std::string& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

bool Contains(const std::string& text, const char* what) {
    return text.find(what) != std::string::npos;
}

TEST_F(Fork, TheChildsMarksAreItsOwnAndDropped) {
    Context context = Context::Root("parent");
    Scope scope("open across the fork");
    const int code = InChild([&] {
        Mark("child");
        METRICS_VALUE("child", 1);
        scope.Close();
        context.Close();
        Manager().SetBits(2, true);
        Manager().Log("child");
        Manager().Shutdown();
        const bool stopped = (Manager().GetState() & MetricsManager::Running) == 0;
        return stopped && Manager().GetStatistics().queued == 0 ? 3 : 4;
    });
    EXPECT_EQ(code, 3);
    scope.Close();
    const Lines lines = TakeLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "6 child"), 0);
    EXPECT_EQ(lines.back(), "7 open across the fork");
}

TEST_F(Fork, TheChildStartsAgain) {
    MetricsOutput parents(Mode::Borrowed, Format::RawUnordered);
    parents.OpenFile("fork-parent.csv", 0);
    Mark("before");
    const int code = InChild([&] {
        {
            Session session;
            MetricsOutput output(Mode::Borrowed, Format::RawUnordered);
            output.OpenFile("fork-child.csv", 0);
            Mark("child");
            parents.Finish(0);
            parents.Close();
        }
        return Contains(Text("fork-child.csv"), "child") ? 3 : 4;
    });
    EXPECT_EQ(code, 3);
    Mark("after");
    parents.Close();
    const std::string text = Text("fork-parent.csv");
    EXPECT_TRUE(Contains(text, "before"));
    EXPECT_TRUE(Contains(text, "after"));
    EXPECT_FALSE(Contains(text, "child"));
    const std::string opening = ",6,\"before\"";
    EXPECT_EQ(text.find(opening), text.rfind(opening)) << "the child wrote what it had inherited";
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
    const std::string text = Text("fork-unwind.csv");
    EXPECT_TRUE(Contains(text, ",7,\"unwinds\""));
}

TEST_F(Fork, WhateverOtherThreadsAreDoing) {
    if (kSanitized) GTEST_SKIP() << "a sanitizer's own locks may be held by threads that stay in the parent";
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!stop) Mark("busy");
        });
    }
    threads.emplace_back([&] {
        while (!stop) {
            MetricsSubscription subscription(MetricsEventCategory::Events, [](const auto&) {});
            std::thread([] { Mark("short"); }).join();
        }
    });
    threads.emplace_back([&] {
        while (!stop) {
            Manager().Shutdown();
            Manager().SetLogDelegate([](const std::string&) {});
            Manager().Start();
        }
    });
    int failures = 0;
    for (int i = 0; i < 50; ++i) {
        const int code = InChild([&] {
            Mark("child");
            Session session;
            Recorder recorder;
            Mark("child");
            return recorder.Take().empty() ? 4 : 3;
        });
        if (code != 3) ++failures;
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
}

TEST_F(Fork, InACallback) {
    if (kThreadSanitized)
        GTEST_SKIP() << "the sanitizer crashes where a thread of the parent ends in the child";
    for (const char* way : {"return", "throw", "start", "exit"}) {
        std::atomic<pid_t> child{0};
        const std::string what = way;
        const int id = Manager().Subscribe(MetricsEventCategory::Events, [&](const auto&) {
            if (child != 0) return;
            const pid_t forked = fork();
            if (forked != 0) {
                child = forked;
                return;
            }
            child = -1;
            if (what == "throw") throw 1;
            if (what == "start") {
                Session session;
                Recorder recorder;
                Mark("child");
                _exit(recorder.Take().empty() ? 4 : 0);
            }
            if (what == "exit") std::_Exit(0);
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
