// Outputs that end at odd moments: during Shutdown, after FreeInstance, in a callback, several at once.
#include <sstream>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
#include "tests/lifetime/Text.h"
#include "tests/lifetime/Threads.h"
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
    bool Has(const char* what) const { return Count(text.str(), what) != 0; }
};

void Mark(const char* name) {
    Context context = Context::Root(name);
    METRICS_SCOPE_NAMED(name);
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
    const Written fresh[3];  // with the ids that the subscriptions of the recorder and the outputs had
    restarted.output.reset();
    Mark("after");
    EXPECT_TRUE(restarted.Has("before"));
    for (const Written& written : fresh) {
        written.output->Flush();
        EXPECT_TRUE(written.Has("after")) << "the old output took a new one's registration with it";
    }
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
        AtOnce(4, [&](int) {
            written.output->Close();
            EXPECT_TRUE(written.Has("before"));
        });
    }
}

}  // namespace
}  // namespace Metrics::Testing
