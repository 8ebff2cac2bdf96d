// Finish and Close while others post without pause.
#include <sstream>
#include <thread>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Session.h"
#include "tests/support/Memory.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

// Threads that post as fast as they can, as long as it lives.
class Posters {
  public:
    Posters() {
        for (std::thread& thread : threads_) {
            thread = std::thread([this] {
                while (!stop_) {
                    Context context = Context::Root("load");
                    METRICS_SCOPE("load");
                }
            });
        }
    }
    ~Posters() {
        stop_ = true;
        for (std::thread& thread : threads_) thread.join();
    }

  private:
    std::atomic<bool> stop_{false};
    std::thread threads_[kThreadSanitized ? 2 : 4];
};

class UnderLoad : public ::testing::TestWithParam<MetricsOutput::Format> {};

TEST_P(UnderLoad, FinishAndCloseReturnWithWhatWasPostedBefore) {
    const Session session;
    std::ostringstream text;
    MetricsOutput output(MetricsOutput::Mode::Borrowed, GetParam());
    Context mine = Context::Root("mine");
    output.WriteToStream(text, mine.GetContextId());
    const Posters posters;
    constexpr std::size_t kMarks = kThreadSanitized ? 3 : 10;  // the worker is slow there
    for (std::size_t i = 0; i < kMarks; ++i) {
        { Scope scope("mark"); }
        output.Finish(0);
    }
    mine.Close();
    output.Close();
    const std::string written = text.str();
    const std::string mark = ",6,\"mark\"";
    std::size_t marks = 0;
    for (std::size_t at = written.find(mark); at != std::string::npos; at = written.find(mark, at + 1))
        ++marks;
    EXPECT_EQ(marks, kMarks);
    EXPECT_EQ(output.GetErrors(), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Formats, UnderLoad,
                         ::testing::Values(MetricsOutput::Format::RawUnordered, MetricsOutput::Format::Raw));

}  // namespace
}  // namespace Metrics::Testing
