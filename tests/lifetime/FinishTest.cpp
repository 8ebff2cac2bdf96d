// Finish and Close while other threads post without pause.
#include <sstream>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
#include "tests/lifetime/Text.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/Memory.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

class UnderLoad : public ::testing::TestWithParam<MetricsOutput::Format> {};

TEST_P(UnderLoad, FinishAndCloseReturnWithWhatWasPostedBefore) {
    const Session session;
    std::ostringstream text;
    MetricsOutput output(MetricsOutput::Mode::Borrowed, GetParam());
    Context mine = Context::Root("mine");
    output.WriteToStream(text, mine.GetContextId());
    const auto posters = Repeat(kThreadSanitized ? 2 : 4, [](unsigned) {
        Context context = Context::Root("load");
        METRICS_SCOPE("load");
    });
    constexpr std::size_t kMarks = kThreadSanitized ? 3 : 10;  // the worker is slow there
    for (std::size_t i = 0; i < kMarks; ++i) {
        { METRICS_SCOPE("mark"); }
        output.Finish(0);
    }
    mine.Close();
    output.Close();
    EXPECT_EQ(Count(text.str(), ",6,\"mark\""), kMarks);
    EXPECT_EQ(output.GetErrors(), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Formats, UnderLoad,
                         ::testing::Values(MetricsOutput::Format::RawUnordered, MetricsOutput::Format::Raw));

}  // namespace
}  // namespace Metrics::Testing
