// Outputs that end at odd moments: during Shutdown, after FreeInstance, in a callback, several at once.
#include <sstream>
#include <thread>

#include "metrics/Context.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Scope.h"
#include "tests/lifetime/Gate.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using OutputEnd = RunningTest;
using Mode = MetricsOutput::Mode;
using Format = MetricsOutput::Format;

struct Written {
    std::ostringstream text;
    std::unique_ptr<MetricsOutput> output =
        std::make_unique<MetricsOutput>(Mode::Borrowed, Format::RawUnordered);

    Written() { output->WriteToStream(text, 0); }
    bool Has(const char* what) const { return text.str().find(what) != std::string::npos; }
};

void Mark(const char* name) {
    Context context = Context::Root(name);
    Scope scope{MetricsValue(name)};
}

TEST_F(OutputEnd, DuringShutdown) {
    for (int i = 0; i < 100; ++i) {
        Manager().Start();
        Written written;
        Mark("before");
        std::thread shutdown([this] { Manager().Shutdown(); });
        written.output.reset();
        shutdown.join();
        ASSERT_TRUE(written.Has("before")) << "round " << i;
    }
    Manager().Start();
}

TEST_F(OutputEnd, AfterShutdownAndAfterARestart) {
    Written stopped;
    Written restarted;
    Mark("before");
    Manager().Shutdown();
    stopped.output.reset();
    EXPECT_TRUE(stopped.Has("before"));
    Manager().Start();
    Written fresh;  // its subscription has the id that the old ones had
    restarted.output.reset();
    Mark("after");
    fresh.output->Flush();
    EXPECT_TRUE(restarted.Has("before"));
    EXPECT_TRUE(fresh.Has("after")) << "the old output took the new one's registration with it";
}

TEST_F(OutputEnd, AfterFreeInstance) {
    Written running;
    Written stopped;
    Mark("before");
    running.output->Flush();
    MetricsManager::FreeInstance();
    running.output.reset();
    EXPECT_TRUE(running.Has("before"));
    stopped.output->Close();
    stopped.output->Finish(0);
    stopped.output.reset();
    EXPECT_TRUE(stopped.Has("before"));
}

TEST_F(OutputEnd, InACallback) {
    Written written;
    Mark("before");
    Recorded().Take();
    std::atomic<bool> done{false};
    const int id = Manager().Subscribe(MetricsEventCategory::Events, [&](const auto&) {
        written.output.reset();
        done = true;
    });
    EXPECT_TRUE(Manager().WaitUntil([&] { return done.load(); }, 20000));
    Manager().Unsubscribe(id);
    EXPECT_TRUE(written.Has("before"));
}

TEST_F(OutputEnd, WhileItsManagerIsStuckInAnotherCallback) {
    Gate gate;
    Written written;
    Mark("before");
    written.output->Flush();
    const int id = Manager().Subscribe(MetricsEventCategory::Events, [&](const auto&) { gate.Pass(); });
    gate.WaitForSomebody();
    Manager().Shutdown();
    written.output.reset();
    EXPECT_TRUE(written.Has("before"));
    gate.Open();
    Manager().Unsubscribe(id);
    Manager().Start();
}

TEST_F(OutputEnd, OfManyClosesOneWorksAndTheOthersWaitForIt) {
    for (int round = 0; round < 20; ++round) {
        Written written;
        Mark("before");
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                written.output->Close();
                EXPECT_TRUE(written.Has("before"));
            });
        }
        for (std::thread& thread : threads) thread.join();
    }
}

}  // namespace
}  // namespace Metrics::Testing
