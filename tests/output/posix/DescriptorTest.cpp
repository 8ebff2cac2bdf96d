// Files and pipes that run out, and outputs in the child of a fork.
#include <fcntl.h>
#include <signal.h>
#include <sys/inotify.h>
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

struct OutputDescriptors : OutputTest {
    int OpenPipe() const { return open(pipe_.c_str(), O_RDONLY | O_NONBLOCK); }
    // What can be read at once. Closes it.
    static std::string Take(int reader, std::size_t most = 8) {
        std::string text(most, ' ');
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(read(reader, text.data(), most), 0)));
        close(reader);
        return text;
    }
    const std::string pipe_ = Path("pipe");
    const int made_ = mkfifo(pipe_.c_str(), 0600);
};

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
    const int reader = OpenPipe();
    Session session;
    MetricsOutput output(Mode::Single, Format::Raw);
    output.OpenFile(pipe_, 0);
    close(reader);
    { const Context context(0, Context::Create(true)); }
    output.Close();
    EXPECT_EQ(output.GetErrors(), Briefs{"failed to write to " + pipe_ + ": Broken pipe"});
}

// A descriptor that stands for another one as long as it lives.
class Redirected {
  public:
    explicit Redirected(int descriptor)
        : descriptor_(descriptor), kept_(fcntl(descriptor, F_DUPFD_CLOEXEC, 10)) {}
    Redirected(int descriptor, const std::string& path) : Redirected(descriptor) {
        const int file = open(path.c_str(), O_WRONLY | O_APPEND);
        dup2(file, descriptor);
        close(file);
    }
    ~Redirected() {
        dup2(kept_, descriptor_);
        close(kept_);
    }

  private:
    const int descriptor_;
    const int kept_;
};

TEST_F(OutputDescriptors, APipeWithoutAReaderHoldsUpNobody) {
    ASSERT_EQ(symlink("pipe", Path("auto-1").c_str()), 0);
    MetricsManager::FreeInstance();  // ids from 1
    Session session;
    MetricsOutput automatic(Mode::PerContext, Format::Raw), other(Mode::Single, Format::Raw);
    other.OpenFile(Path("other"), 0);
    automatic.SetWildcardedOutputFile(Path("auto-*"));
    { const Context context = Context::Root("job"); }
    automatic.Flush();
    EXPECT_EQ(automatic.GetErrors(),
              Briefs{"failed to open file: " + Path("auto-1") + ": No such device or address"});
    other.Flush();
    EXPECT_TRUE(Has(ReadFile(Path("other")), ",1,1,3,"));

    // The host's own call waits, while the output works.
    MetricsOutput waiting(Mode::Borrowed, Format::RawUnordered);
    waiting.OpenFile(Path("free"), 0);
    std::atomic<bool> opened = false;
    std::thread opener([&] {
        waiting.OpenFile(pipe_, 0);
        opened = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    { const Context context = Context::Root("job"); }
    waiting.Flush();
    EXPECT_EQ(waiting.GetErrors(), Briefs());
    EXPECT_TRUE(Has(ReadFile(Path("free")), ",2,1,3,"));
    EXPECT_FALSE(opened);
    const int reader = OpenPipe();
    opener.join();
    waiting.Close();
    EXPECT_EQ(Take(reader), "timestam");
}

TEST_F(OutputDescriptors, TheStandardStreamsAreNeverTaken) {
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO}) {
        const Redirected redirected(standard);
        close(standard);
        Output output(Mode::PerContext, Format::CsvComma, "a");
        output.SetWildcard(Path("t-*.csv"));
        output.OpenFile(Path("host.csv"), 77);
        output.Put({Create(0, 1), Construct(0, 1)});
        EXPECT_EQ(fcntl(standard, F_GETFD), -1) << "somebody prints into a table";
        output.CloseDown();
        EXPECT_EQ(output.Errors(), Briefs());
        EXPECT_EQ(ReadFile(Path("t-1.csv")), "a\n");
    }
}

TEST_F(OutputDescriptors, TablesGoToStreamsAndPipesWithoutASchema) {
    std::ofstream(Path("stdout")) << "before\n";
    {
        const Redirected redirected(STDOUT_FILENO, Path("stdout"));
        for (const char* name : {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"}) {
            Output output(Mode::Single, Format::CsvComma, "a");
            output.OpenFile(name, 0);
            output.CloseDown();
            EXPECT_EQ(output.Errors(), Briefs());
            EXPECT_EQ(write(STDOUT_FILENO, "host\n", 5), 5);
        }
    }
    EXPECT_EQ(ReadFile(Path("stdout")), "before\na\nhost\na\nhost\na\nhost\n");
    EXPECT_FALSE(std::filesystem::exists("/dev/schema.ini"));

    const int reader = OpenPipe();
    Output output(Mode::PerContext, Format::CsvComma, "a");
    output.SetWildcard(Path("auto-*"));
    ASSERT_EQ(symlink("pipe", Path("auto-1").c_str()), 0);
    output.OpenFile(pipe_, 2);
    output.Put({Create(0, 1), Construct(0, 1), Close(1)});
    output.CloseDown();
    EXPECT_EQ(output.Errors(), Briefs());
    EXPECT_EQ(Take(reader), "a\na\n");
    EXPECT_FALSE(std::filesystem::exists(Path("schema.ini")));
}

TEST_F(OutputDescriptors, AStreamThatTheHostMadeNonBlockingIsWaitedFor) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    Output output(Mode::Single, Format::RawUnordered);
    output.OpenFile("/dev/fd/" + std::to_string(ends[1]), 0);
    close(ends[1]);
    std::size_t size = 0;
    std::thread reader([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the pipe is full by then
        std::string text(100000, ' ');
        for (ssize_t length; (length = read(ends[0], text.data(), text.size())) > 0;)
            size += static_cast<std::size_t>(length);
    });
    const std::vector<MetricsEvent> events(20000, OpenScope(1, "a"));
    output.Put(events);
    output.CloseDown();
    reader.join();
    close(ends[0]);
    EXPECT_EQ(output.Errors(), Briefs());
    EXPECT_GT(size, 20 * events.size());
}

TEST_F(OutputDescriptors, TheSchemaOfManyTablesIsWrittenOnceACycle) {
    std::vector<MetricsEvent> roots;
    for (std::uint64_t id = 1; id <= 100; ++id) roots.push_back(Create(0, id));
    const std::pair<const char*, std::size_t> runs[] = {{"a", 1}, {"b", 1}, {"b", 0}};
    for (const auto& [definition, times] : runs) {
        const int watch = inotify_init1(IN_NONBLOCK);
        ASSERT_GE(inotify_add_watch(watch, folder_.c_str(), IN_MOVED_TO | IN_CLOSE_WRITE), 0);
        {
            Output output(Mode::PerContext, Format::CsvComma, definition);
            output.SetWildcard(Path("*.csv"));
            output.Put(roots);
            EXPECT_EQ(output.Errors(), Briefs());
        }
        EXPECT_EQ(Count(Take(watch, 65536), std::string("\0schema.ini\0", 12)), times);
        const std::string text = ReadFile(Path("schema.ini"));
        EXPECT_TRUE(Has(text, "[100.csv]\n") && Has(text, "\"" + std::string(definition) + "\" ")) << text;
    }
}

TEST_F(OutputDescriptors, TheErrorStreamNeitherRaisesASignalNorWaitsAndIsTheParentsAlone) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto fail = [] { Output(Mode::Borrowed, Format::Raw).SetError("x"); };
    const auto failInto = [&](bool full) {
        int ends[2] = {};
        if (pipe(ends) != 0) std::_Exit(1);
        fcntl(ends[1], F_SETFL, O_NONBLOCK);
        while (full && write(ends[1], "0123456789", 10) > 0) {
        }
        fcntl(ends[1], F_SETFL, 0);
        dup2(ends[1], STDERR_FILENO);
        if (!full) close(ends[0]);
        alarm(20);
        fail();
        std::_Exit(0);
    };
    const auto forked = [&] {
        if (fork() == 0) {
            fail();
            std::_Exit(0);
        }
        int status = 0;
        wait(&status);
        std::_Exit(status);
    };
    EXPECT_EXIT(failInto(false), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(failInto(true), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(forked(), testing::ExitedWithCode(0), "^$");
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
