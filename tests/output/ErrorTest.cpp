// What an output does when something fails, and who hears of it.
#include <filesystem>
#include <future>
#include <stdexcept>

#include "metrics/Context.h"
#include "metrics/Session.h"
#include "tests/output/OutputFixture.h"
#include "tests/support/Recorder.h"
#include "tests/support/Thrown.h"

namespace Metrics {
namespace {

using namespace Testing;

using OutputErrors = OutputTest;

const std::vector<MetricsEvent> kLife = {Create(0, 1), Construct(0, 1), OpenScope(1, "a"), CloseScope(1, "a"),
                                         Close(1)};

TEST_F(OutputErrors, RefusesModesAndFormatsThatDoNotExist) {
    EXPECT_THROW(MetricsOutput(Mode::Single, static_cast<Format>(6)), std::invalid_argument);
    EXPECT_THROW(MetricsOutput(static_cast<Mode>(4), Format::Raw), std::invalid_argument);
}

TEST_F(OutputErrors, WhatCannotBeOpenedReachesTheCallerAndLeavesNothing) {
    for (const Mode mode : {Mode::Borrowed, Mode::Single, Mode::PerContext}) {
        Output output(mode, Format::Xml);
        EXPECT_EQ(Thrown<std::runtime_error>([&] { output.OpenFile(Path("no/such/folder"), 1); }),
                  "failed to open file");
        EXPECT_THROW(output.OpenStream(nullptr, 1), std::runtime_error);
        output.Put(kLife);
        EXPECT_EQ(output.Errors(), Briefs());
    }
}

// Takes one block, and no more.
class FailingBuffer : public std::stringbuf {
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        return str().empty() ? std::stringbuf::xsputn(text, count) : 0;
    }
};

TEST_F(OutputErrors, AStreamThatFailsEndsItsOutputButTheOtherTargetsAreWritten) {
    for (const bool throws : {false, true}) {
        FailingBuffer buffer;
        std::ostream failing(&buffer);
        if (throws) failing.exceptions(std::ios::badbit | std::ios::failbit);
        Output output(Mode::Borrowed, Format::Xml);
        output.OpenStream(&failing, 1);
        const std::stringbuf& good = output.Listen(2);
        output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "a"), Create(0, 2), Construct(0, 2),
                    OpenScope(2, "b")});
        EXPECT_EQ(output.Errors(), Briefs());
        output.Put({CloseScope(1, "a"), OpenScope(2, "c"), Create(2, 3), CloseScope(2, "c")});
        ASSERT_EQ(output.Errors().size(), 1U);
        EXPECT_TRUE(output.Errors()[0].starts_with("failed to write to context 1")) << output.Errors()[0];
        EXPECT_EQ(good.str(),
                  "<b>\n  <c>\n  </c>\n  <ForceCloseContextDepth>1</ForceCloseContextDepth>\n</b>\n");
    }
}

TEST_F(OutputErrors, AStreamThatHasFailedAlreadyIsAnErrorWhenItOpens) {
    std::ostream nowhere(nullptr);
    Output output(Mode::Borrowed, Format::Raw);
    output.OpenStream(&nowhere, 1);
    EXPECT_EQ(output.Errors(), Briefs({"failed to write to context 1: the stream failed"}));
}

TEST_F(OutputErrors, WhatOpensAfterAnErrorOrCloseIsClosedAtOnce) {
    for (const bool closed : {false, true}) {
        Output output(Mode::PerContext, Format::Buffer);
        closed ? output.CloseDown() : output.SetError("x");
        output.OpenStream(nullptr, 1);
        EXPECT_EQ(Decode(output.TakeBuffer(1)), Briefs());
        output.Put(kLife);
        EXPECT_EQ(output.TakeBuffer(1), nullptr);
    }
}

TEST_F(OutputErrors, AFullDiskIsAnErrorThatNamesTheFile) {
    if (!std::ofstream("/dev/full")) GTEST_SKIP() << "this system has no full device";
    for (const Format format : {Format::Raw, Format::Xml, Format::RawUnordered, Format::CsvComma}) {
        Output output(Mode::Single, format, "a");
        output.OpenFile("/dev/full", 0);
        for (int again = 0; again < 2; ++again) {
            output.Put(kLife);
            EXPECT_EQ(output.Errors(), Briefs({"failed to write to /dev/full: No space left on device"}));
        }
        output.CloseDown();
        EXPECT_EQ(output.Errors().size(), 1U);
    }
}

// What an error handler got.
struct Heard {
    explicit Heard(detail::OutputState& output) {
        output.SetErrorHandler([this](const std::string& error) { errors.push_back(error); });
    }
    Lines errors;
};

TEST_F(OutputErrors, EachGoesToTheLogAndToTheHandlerWithItsFile) {
    const std::string missing = Path("no/such/file"), words = ": No such file or directory";
    std::filesystem::create_directories(Path("schema.ini"));  // so that none can be written
    std::ofstream(Path("x")) << "precious";
    const struct {
        const char* definition;
        std::string file;
        bool isOfTheHost;
        std::string error;
    } cases[] = {
        {"", missing, true, "failed to open file: " + missing + words},
        {"(", Path("x"), true, "failed to open " + Path("x") + ": "},
        {"a", missing, false, "failed to open file: " + missing + "1" + words},
        {"(", Path("y"), false, "failed to open " + Path("y1") + ": "},
        {"a", Path("z"), false, "WritePrivateProfileString failed with errorcode "},
    };
    for (const auto& [definition, file, isOfTheHost, error] : cases) {
        LogKeeper log;
        Output output(Mode::PerContext, Format::CsvComma, definition);
        Heard heard(output);
        if (isOfTheHost) {
            EXPECT_THROW(output.OpenFile(file, 1), std::runtime_error);
        } else {
            output.SetWildcard(file);  // without a star the id is the end
            output.Put(kLife);
            output.Put({Create(0, 2), Create(0, 3)});
        }
        ASSERT_EQ(heard.errors.size(), 1U) << file;
        EXPECT_TRUE(heard.errors[0].starts_with(error)) << heard.errors[0];
        EXPECT_EQ(log.Take(), InLog(heard.errors));
        EXPECT_EQ(output.Errors(), isOfTheHost ? Lines() : heard.errors) << file;
        EXPECT_EQ(Has(heard.errors[0], ": " + Path("schema.ini") + ": "), error[0] == 'W');
    }
    EXPECT_EQ(ReadFile(Path("x")), "precious");
    Output output(Mode::Single, Format::CsvComma, "a");
    const std::string thrown = Thrown<std::runtime_error>([&] { output.OpenFile(Path("x"), 1); });
    EXPECT_TRUE(thrown.starts_with("WritePrivateProfileString failed with errorcode ")) << thrown;
    EXPECT_EQ(thrown.find(':'), std::string::npos) << "the described words only";
}

TEST_F(OutputErrors, ARemarkIsHeardButIsNone) {
    LogKeeper log;
    Output output(Mode::Borrowed, Format::Xml);
    Heard heard(output);
    output.Remark("context 1: a row less");
    output.Put(kLife);
    EXPECT_EQ(output.Errors(), Lines());
    output.SetError("mine");
    EXPECT_EQ(heard.errors, (Lines{"context 1: a row less", "mine"}));
    EXPECT_EQ(log.Take(), InLog(heard.errors));
    EXPECT_EQ(output.Errors(), Lines{"mine"});
}

// Whether another thread gets done with it meanwhile. It must not wait for the calling one.
bool GetsDone(std::function<void()> action) {
    auto done = std::make_shared<std::packaged_task<void()>>(std::move(action));
    std::thread([done] { (*done)(); }).detach();
    return done->get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

TEST_F(OutputErrors, TheHandlerHoldsNoLockAndMayCallAnything) {
    LogKeeper log;
    Session session;
    auto& manager = MetricsManager::GetInstance();
    std::filesystem::create_directories(Path("f-1"));  // no file can be opened there
    for (const bool onWorker : {true, false}) {
        FailingBuffer buffer;
        std::ostream stream(&buffer);
        MetricsOutput output(onWorker ? Mode::PerContext : Mode::Borrowed, Format::Xml);
        output.SetWildcardedOutputFile(Path("no/such/folder"));
        std::thread::id thread;
        int calls = 0;
        output.SetErrorHandler([&](const std::string& error) {
            ++calls;
            thread = std::this_thread::get_id();
            EXPECT_EQ(output.GetErrors(), Lines{error});
            EXPECT_TRUE(GetsDone([&] {
                output.GetErrors();
                if (!onWorker)  // which subscribing waits for
                    manager.Unsubscribe(manager.Subscribe(MetricsEventCategory::Events, [](const auto&) {}));
            }));
            output.SetError("again");
            output.Finish(0);
            output.Close();
            output.SetErrorHandler(
                [](const std::string&) { FAIL() << "a second error came from the handler"; });
            throw std::runtime_error("nobody hears");
        });
        Context context = Context::Root("job");
        if (!onWorker) output.WriteToStream(stream, context.GetContextId());
        context.OpenScope();
        if (!onWorker) output.Flush();  // the end tag is one block too many
        onWorker ? output.Flush() : output.Close();
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(thread == std::this_thread::get_id(), !onWorker);
        ASSERT_EQ(output.GetErrors().size(), 2U);
        EXPECT_EQ(log.Take(), InLog(output.GetErrors())) << "what the handler did wrong is in the log";
    }
}

TEST_F(OutputErrors, ALogThatFailsTheOutputIsNotToldOfThat) {
    Output output(Mode::Borrowed, Format::Raw);
    int lines = 0;
    MetricsManager::GetInstance().SetLogDelegate([&](const std::string&) {
        ++lines;
        output.SetError("the log is full");
    });
    output.SetError("x");
    MetricsManager::GetInstance().SetLogDelegate(nullptr);
    EXPECT_EQ(lines, 1);
    EXPECT_EQ(output.Errors(), (Lines{"x", "the log is full"}));
}

TEST_F(OutputErrors, TheFirstIsALineOnTheErrorStreamWhileThereWasNoLog) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto fail = [](bool withLog) {
        if (withLog) MetricsManager::GetInstance().SetLogDelegate(nullptr);
        Output output(Mode::Borrowed, Format::Raw);
        for (const char* error : {"the first\n\x1B[31m", "the second"}) output.SetError(error);
        std::_Exit(0);
    };
    EXPECT_EXIT(fail(false), testing::ExitedWithCode(0), "^MX: MetricsOutput: the first  .31m\n$");
    EXPECT_EXIT(fail(true), testing::ExitedWithCode(0), "^$") << "an empty log keeps silence";
}

}  // namespace
}  // namespace Metrics
