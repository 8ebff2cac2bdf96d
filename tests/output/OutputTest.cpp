// Whole outputs behind the real manager. What they write of real work is compared with the examples' texts.
#include <atomic>
#include <iostream>
#include <thread>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/Session.h"
#include "tests/output/OutputFixture.h"
#include "tests/rows/RunRows.h"
#include "tests/support/Memory.h"
#include "tests/support/Recorder.h"

namespace Metrics {
namespace {

using namespace Testing;

class WholeOutput : public OutputTest {
  protected:
    Session session_;
};

TEST_F(WholeOutput, OpensTheFileOfANewContextBeforeItsFirstEvent) {
    MetricsOutput output(Mode::Borrowed, Format::Raw);
    const auto id = output.OpenNewContextAndFile(Path("new"));
    ASSERT_NE(id, 0U);
    {
        Context context(0, id);
        context.OpenScope();
    }
    output.Finish(id);
    EXPECT_TRUE(Has(ReadFile(Path("new")), ",2,\"0\",\"" + std::to_string(id) + "\"\n"));
    EXPECT_THROW(output.OpenNewContextAndFile(Path("no/such/folder")), std::runtime_error);
    EXPECT_FALSE(output.HasError());
}

TEST_F(WholeOutput, TargetsComeAndGoWhileThreadsWork) {
    MetricsOutput single(Mode::Single, Format::Xml);
    single.OpenFile(Path("single"), 0);
    MetricsOutput each(Mode::PerContext, Format::Xml);
    each.SetWildcardedOutputFile(Path("each-*"));
    constexpr int kJobs = 200;
    std::thread threads[3];
    std::atomic<std::size_t> working = std::size(threads);
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            for (int job = 0; job < kJobs; ++job) {
                Context context = Context::Root("job");
                METRICS_SCOPE("outer");
                ContextTicket ticket = Context::Hand("handed");
                std::thread([&] {
                    Context child(std::move(ticket));
                    METRICS_SCOPE("inner");
                }).join();
                METRICS_VALUE("job", job);
            }
            --working;
        });
    }
    while (working != 0) {
        std::ostringstream stream;
        MetricsOutput passing(Mode::Borrowed, Format::Raw);
        passing.WriteToStream(stream, passing.OpenNewContextAndFile(Path("passing")));
    }
    for (std::thread& thread : threads) thread.join();
    for (MetricsOutput* output : {&single, &each}) {
        output->Close();
        EXPECT_EQ(output->GetErrors(), Briefs());
    }
    const std::string text = ReadFile(Path("single"));
    EXPECT_EQ(Count(text, "    </handed>\n    <job>"), std::size(threads) * kJobs) << text.substr(0, 2000);
}

// Counts how often it is flushed.
class FlushedBuffer : public std::stringbuf {
  public:
    int flushes = 0;

  private:
    int sync() override {
        ++flushes;
        return 0;
    }
};

TEST_F(WholeOutput, FlushesWhatStaysOpenOnceInACycle) {
    FlushedBuffer buffer;
    std::ostream stream(&buffer);
    MetricsOutput output(Mode::Borrowed, Format::Raw);
    Context context = Context::Root("job");
    output.WriteToStream(stream, context.GetContextId());
    Scope scope("many");
    output.Flush();
    const int before = buffer.flushes;
    auto& manager = MetricsManager::GetInstance();
    manager.SetState(MetricsManager::Collecting, false);
    for (int i = 1; i <= 10000; ++i) scope.Emit("i", i);
    manager.SetState(MetricsManager::Collecting, true);
    output.Flush();
    EXPECT_TRUE(Has(buffer.str(), ",10,\"i\",\"10000\"\n"));
    EXPECT_EQ(buffer.flushes, before + 1);
    scope.Close();
    context.Close();
    output.Close();
}

TEST_F(WholeOutput, ClosedInACallbackWhileAnotherThreadCloses) {
    // Under ThreadSanitizer the worker is some fifty times slower than without.
    for (int left = kThreadSanitized ? 4 : 20; left != 0; --left) {
        MetricsOutput output(Mode::Single, Format::Raw);
        output.OpenFile(Path("raw"), 0);
        auto& manager = MetricsManager::GetInstance();
        const int id = manager.Subscribe(MetricsEventCategory::Events, [&](const auto&) { output.Close(); });
        { const Context context = Context::Root("job"); }
        output.Close();
        manager.Unsubscribe(id);
    }
}

using OutputAlone = OutputTest;

TEST_F(OutputAlone, BeforeTheManagerStartsItOpensFinishesAndCloses) {
    MetricsOutput output(Mode::Single, Format::Raw);
    output.OpenFile(Path("raw"), 0);
    output.Finish(0);
    output.Flush();
    output.Close();
    output.Close();
    output.Finish(0);
    EXPECT_EQ(ReadFile(Path("raw")), "timestamp,context_id,component_id,event_type,param1,param2\n");
}

TEST_F(OutputAlone, WhatClosesInTheWrongOrderLeavesTheRestRightAndIsLoggedOnce) {
    MetricsManager::FreeInstance();
    LogKeeper log;
    {
        Session session;
        MetricsOutput output(Mode::Completed, Format::Xml);
        output.OpenFile(Path("xml"), 0);
        output.MuteVolatileData();
        {
            Context context = Context::Root("first");
            METRICS_SCOPE("a");
            context.Close();
        }
        {
            Context context = Context::Root("second");
            auto outer = std::make_unique<Scope>("outer");
            Scope inner("inner");
            outer.reset();
            Context child = Context::Child("child");
            Scope inChild("in child");
            child.Close();
            inner.Close();
            METRICS_SCOPE("b");
        }
        output.Close();
        EXPECT_EQ(RunRows("path(*)", ReadFile(Path("xml"))),
                  "first.a\nfirst\nsecond.outer.inner\nsecond.outer\nsecond.child.in "
                  "child\nsecond.child\nsecond.b\nsecond\n");
    }
    EXPECT_EQ(log.Take(), Lines{"MX: MetricsOutput: a context or scope closed while scopes inside it were "
                                "open; they are written as ended there"});
}

TEST_F(OutputAlone, AnOverwrittenObjectEndsTheProcessWithAMessage) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    MetricsManager::GetInstance().SetLogDelegate([](const std::string& line) { std::cerr << line << '\n'; });
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
