// Whole outputs behind the real manager.
#include <atomic>
#include <thread>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/Session.h"
#include "tests/output/OutputFixture.h"

namespace Metrics {
namespace {

using namespace Testing;

class WholeOutput : public OutputTest {
  protected:
    Session session_;
};

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST_F(WholeOutput, WritesAFilePerRootAndClosesItWithTheContext) {
    MetricsOutput output(Mode::PerContext, Format::Xml);
    output.SetWildcardedOutputFile(Path("a b*c.xml"));
    unsigned long long id = 0;
    {
        Context context = Context::Root("job");
        id = context.GetContextId();
        METRICS_SCOPE("step");
        METRICS_VALUE("n", 5);
    }
    output.Flush();
    const std::string text = ReadFile(Path("a b" + std::to_string(id) + "c.xml"));
    EXPECT_TRUE(text.ends_with("</job>\n")) << text;
    EXPECT_TRUE(Has(text, "  <step>\n")) << text;
    EXPECT_TRUE(Has(text, "    <n>5</n>\n  </step>\n")) << text;
    EXPECT_FALSE(output.HasError());
}

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

TEST_F(WholeOutput, ABufferMergedElsewhereGivesTheSameXml) {
    std::ostringstream text;
    MetricsOutput buffers(Mode::PerContext, Format::Buffer);
    MetricsOutput direct(Mode::Borrowed, Format::Xml);
    MetricsOutput merged(Mode::PerContext, Format::Xml);
    const auto id =
        Context::Create(true, [&](unsigned long long newId) { direct.WriteToStream(text, newId); });
    {
        Context context(0, id);
        context.AddAttribute("file", "a<b");
        Context child = Context::Child("inner");
        METRICS_SCOPE("step");
    }
    buffers.Finish(0);
    const auto buffer = buffers.TakeBuffer(id);
    ASSERT_NE(buffer, nullptr);
    merged.SetWildcardedOutputFile(Path("merged-"));
    MetricsManager::GetInstance().MergeRemoteEvents(buffer);
    merged.Close();
    direct.Close();
    std::string found;
    for (unsigned long long other = id + 1; other < id + 10; ++other) {
        const std::string content = ReadFile(Path("merged-" + std::to_string(other)));
        if (content != "no file") found += content;
    }
    EXPECT_TRUE(Has(text.str(), "<step>")) << text.str();
    EXPECT_EQ(found, text.str());
}

TEST_F(WholeOutput, TargetsComeAndGoWhileThreadsWork) {
    MetricsOutput unordered(Mode::Single, Format::RawUnordered);
    unordered.OpenFile(Path("unordered"), 0);
    MetricsOutput single(Mode::Single, Format::Xml);
    single.OpenFile(Path("single"), 0);
    MetricsOutput each(Mode::PerContext, Format::Xml);
    each.SetWildcardedOutputFile(Path("each-*"));
    constexpr int kThreads = 3;
    constexpr int kJobs = 200;
    std::atomic<int> working{kThreads};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
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
    for (MetricsOutput* output : {&unordered, &single, &each}) {
        output->Close();
        EXPECT_EQ(output->GetErrors(), Briefs());
    }
    const std::string text = ReadFile(Path("single"));
    std::size_t jobs = 0;
    for (std::size_t at = 0; (at = text.find("    </handed>\n    <job>", at)) != std::string::npos; ++at)
        ++jobs;
    EXPECT_EQ(jobs, static_cast<std::size_t>(kThreads * kJobs)) << text.substr(0, 2000);
}

}  // namespace
}  // namespace Metrics
