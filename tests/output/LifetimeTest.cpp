// Outputs that begin and end at bad moments. Each test has a process and a time limit of its own.
#include <atomic>
#include <chrono>
#include <iostream>
#include <optional>
#include <thread>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/Session.h"
#include "tests/output/OutputFixture.h"
#include "tests/support/Memory.h"

namespace Metrics {
namespace {

using namespace Testing;
using namespace std::chrono_literals;

// Under ThreadSanitizer the worker is some fifty times slower than without.
constexpr int kRepeats = kThreadSanitized ? 4 : 20;

class OutputLifetime : public OutputTest {
  protected:
    static void Work(const char* name) {
        Context context = Context::Root(name);
        METRICS_SCOPE("step");
    }

    MetricsManager& manager_ = MetricsManager::GetInstance();
};

struct Posting {
    explicit Posting(int count) {
        for (int thread = 0; thread < count; ++thread) {
            threads.emplace_back([this] {
                while (!stop) {
                    Context context = Context::Root("noise");
                    for (int i = 0; i < 100; ++i) {
                        METRICS_SCOPE("step");
                    }
                }
            });
        }
    }
    ~Posting() {
        stop = true;
        for (std::thread& thread : threads) thread.join();
    }

    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
};

// An output of one context, which has worked and closed.
struct Marked {
    Marked() : output(Mode::Borrowed, Format::Xml) {
        Context context(
            0, Context::Create(true, [&](unsigned long long id) { output.WriteToStream(stream, id); }));
        context.SetName("marked");
        METRICS_SCOPE("step");
    }

    std::ostringstream stream;
    MetricsOutput output;
};

TEST_F(OutputLifetime, WhatWasPostedBeforeCloseIsWrittenUnderLoad) {
    Session session;
    const Posting posting(2);
    for (int repeat = 0; repeat < kRepeats; ++repeat) {
        Marked marked;
        marked.output.Close();
        EXPECT_TRUE(marked.stream.str().ends_with("</marked>\n")) << marked.stream.str();
    }
}

TEST_F(OutputLifetime, DestroyedAfterShutdownAndAfterFreeInstance) {
    for (const bool freed : {false, true}) {
        MetricsManager& manager = MetricsManager::GetInstance();
        manager.Start();
        manager.SetState(MetricsManager::Collecting, true);
        auto output = std::make_unique<MetricsOutput>(Mode::Single, Format::Xml);
        output->OpenFile(Path("xml"), 0);
        std::optional<Context> open;
        open.emplace(0, Context::Create(true));
        open->OpenScope();
        manager.Shutdown();
        if (freed) MetricsManager::FreeInstance();
        output.reset();
        EXPECT_NE(ReadFile(Path("xml")).find("<ForceCloseContextDepth>1</ForceCloseContextDepth>"),
                  std::string::npos)
            << ReadFile(Path("xml"));
    }
}

TEST_F(OutputLifetime, ClosedInACallbackWhileAnotherThreadCloses) {
    Session session;
    for (int repeat = 0; repeat < kRepeats; ++repeat) {
        MetricsOutput output(Mode::Single, Format::Raw);
        output.OpenFile(Path("raw"), 0);
        const int id = manager_.Subscribe(MetricsEventCategory::Events,
                                          [&](const std::vector<MetricsEvent>&) { output.Close(); });
        Work("job");
        output.Close();
        manager_.Unsubscribe(id);
    }
}

TEST_F(OutputLifetime, WithoutARunningManagerItOpensFinishesAndCloses) {
    MetricsOutput output(Mode::Single, Format::Raw);
    output.OpenFile(Path("raw"), 0);
    output.Finish(0);
    output.Flush();
    output.Close();
    output.Close();
    output.Finish(0);
    EXPECT_EQ(ReadFile(Path("raw")), "timestamp,context_id,component_id,event_type,param1,param2\n");
}

TEST_F(OutputLifetime, AnOverwrittenObjectEndsTheProcessWithAMessage) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    manager_.SetLogDelegate([](const std::string& message) { std::cerr << message << std::endl; });
    alignas(MetricsOutput) unsigned char place[sizeof(MetricsOutput)];
    auto* output = new (place) MetricsOutput(Mode::Single, Format::Raw);
    EXPECT_DEATH(
        {
            place[0] = 0;
            output->HasError();
        },
        "MetricsOutput: Error: invalid object: ptr=0x");
    output->~MetricsOutput();
}

}  // namespace
}  // namespace Metrics
