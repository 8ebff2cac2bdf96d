// Files and pipes that run out, and outputs in the child of a fork.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

#include "metrics/Context.h"
#include "metrics/MetricsSubscription.h"
#include "metrics/Session.h"
#include "tests/lifetime/Threads.h"
#include "tests/output/OutputFixture.h"
#include "tests/support/Memory.h"

namespace Metrics {
namespace {

using namespace Testing;

using OutputDescriptors = OutputTest;

TEST_F(OutputDescriptors, TheLimitOfOpenFilesIsNamed) {
    if (kSanitized) GTEST_SKIP() << "the sanitizer opens pipes to look at memory, and needs descriptors";
    Output output(Mode::PerContext, Format::Xml);
    output.SetWildcard(Path("f-*"));
    rlimit old;
    getrlimit(RLIMIT_NOFILE, &old);
    const rlimit low{20, old.rlim_max};
    setrlimit(RLIMIT_NOFILE, &low);
    std::vector<MetricsEvent> roots;
    for (std::uint64_t id = 1; id <= 30; ++id) roots.push_back(Create(0, id));
    output.Put(roots);
    setrlimit(RLIMIT_NOFILE, &old);
    ASSERT_EQ(output.Errors().size(), 1U);
    EXPECT_TRUE(output.Errors()[0].starts_with("failed to open file: " + Path("f-"))) << output.Errors()[0];
    EXPECT_TRUE(output.Errors()[0].ends_with(": Too many open files")) << output.Errors()[0];
}

TEST_F(OutputDescriptors, FilesThatWereWrittenAreClosedBeforeTheWholeBacklogIs) {
    Session session;
    MetricsOutput output(Mode::PerContext, Format::Raw);
    output.SetWildcardedOutputFile(Path("f-*"));
    Gate gate;
    const MetricsSubscription holding(MetricsEventCategory::Events, [&](const auto&) { gate.Pass(); });
    gate.WaitForSomebody();
    for (int i = 0; i < 1500; ++i) const Context context(0, Context::Create(true));
    rlimit old;
    getrlimit(RLIMIT_NOFILE, &old);
    const rlimit low{1000, old.rlim_max};
    setrlimit(RLIMIT_NOFILE, &low);
    gate.Open();
    output.Close();
    setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(output.GetErrors(), Briefs());
    EXPECT_TRUE(Has(ReadFile(Path("f-1500")), ",1500,1,3,"));
}

TEST_F(OutputDescriptors, AClosedPipeIsAnErrorAndTheProcessLives) {
    ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    const int reader = open(Path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    Session session;
    MetricsOutput output(Mode::Single, Format::Raw);
    output.OpenFile(Path("pipe"), 0);
    close(reader);
    { const Context context(0, Context::Create(true)); }
    output.Close();
    EXPECT_EQ(output.GetErrors(), Briefs{"failed to write to " + Path("pipe") + ": Broken pipe"});
}

TEST_F(OutputDescriptors, TheChildOfAForkLeavesTheParentsFilesAlone) {
    Session session;
    MetricsOutput output(Mode::Single, Format::Xml);
    output.OpenFile(Path("xml"), 0);
    Context context(0, Context::Create(true));
    context.SetName("job");
    context.OpenScope();
    output.Flush();
    const std::string before = ReadFile(Path("xml"));
    const pid_t child = fork();
    if (child == 0) {
        output.Finish(0);
        output.SetError("x");
        output.WriteToBuffer(1);
        const bool quiet = !output.HasError() && output.GetBuffer(1) == nullptr;
        output.Close();
        output.~MetricsOutput();
        _exit(quiet ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(ReadFile(Path("xml")), before);
    context.Close();
    output.Close();
    EXPECT_TRUE(ReadFile(Path("xml")).ends_with("</job>\n"));
}

}  // namespace
}  // namespace Metrics
