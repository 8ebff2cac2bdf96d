// What an output does when something fails, and who hears of it.
#include <filesystem>
#include <future>
#include <stdexcept>

#include "metrics/Context.h"
#include "metrics/MetricsBitsUtils.h"
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

TEST_F(OutputErrors, OnTheWorkerItIsRecordedOnceWithTheName) {
    Output output(Mode::PerContext, Format::Xml);
    output.OpenStream(new std::ostringstream, 1);
    output.SetWildcard(Path("no/such/folder-"));  // without a star the id is the end
    output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "a"), Create(0, 2), Create(0, 3)});
    output.Put({Create(0, 4)});
    EXPECT_EQ(output.Errors(),
              Briefs({"failed to open file: " + Path("no/such/folder-2") + ": No such file or directory"}));
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
        const std::ostringstream& good = output.Listen(2);
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
    for (const Format format : {Format::Raw, Format::Xml, Format::RawUnordered}) {
        Output output(Mode::Single, format);
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

Lines InLog(const Lines& errors) {
    Lines lines;
    for (const std::string& error : errors) lines.push_back("MX: MetricsOutput: " + error);
    return lines;
}

TEST_F(OutputErrors, EachGoesToTheLogAndToTheHandlerWithItsFile) {
    const std::string missing = Path("no/such/file"), words = ": No such file or directory";
    std::filesystem::create_directories(Path("schema.ini"));  // so that none can be written
    struct Case {
        const char* what;
        std::function<void(Output&)> fail;
        std::string error;
        bool isRecorded;
    };
    const Case cases[] = {
        {"a file of the host", [&](Output& output) { EXPECT_ANY_THROW(output.OpenFile(missing, 1)); },
         "failed to open file: " + missing + words, false},
        {"a row definition of the host",
         [&](Output& output) {
             output.SetRowDefinition("(");
             EXPECT_THROW(output.OpenFile(Path("x"), 1), RowDefinitionError);
         },
         "failed to open " + Path("x") + ": ", false},
        {"a file of the worker",
         [&](Output& output) {
             output.SetRowDefinition("a");
             output.SetWildcard(missing);
             output.Put(kLife);
         },
         "failed to open file: " + missing + "1" + words, true},
        {"a row definition on the worker",
         [&](Output& output) {
             output.SetRowDefinition("(");
             output.SetWildcard(Path("y"));
             output.Put(kLife);
         },
         "failed to open " + Path("y1") + ": ", true},
        {"a schema of the worker",
         [&](Output& output) {
             output.SetRowDefinition("a");
             output.SetWildcard(Path("z"));
             output.Put(kLife);
         },
         "WritePrivateProfileString failed with errorcode ", true},
        {"the host's own", [](Output& output) { output.SetError("mine"); }, "mine", true},
    };
    for (const Case& test : cases) {
        LogKeeper log;
        Output output(Mode::PerContext, Format::CsvComma);
        Heard heard(output);
        test.fail(output);
        ASSERT_EQ(heard.errors.size(), 1U) << test.what;
        EXPECT_TRUE(heard.errors[0].starts_with(test.error)) << heard.errors[0];
        EXPECT_EQ(log.Take(), InLog(heard.errors));
        EXPECT_EQ(output.Errors(), test.isRecorded ? heard.errors : Lines()) << test.what;
        if (test.error[0] == 'W') {
            EXPECT_TRUE(Has(heard.errors[0], ": " + Path("schema.ini") + ": ")) << heard.errors[0];
        }
    }
    Output output(Mode::Single, Format::CsvComma);
    output.SetRowDefinition("a");
    const std::string thrown = Thrown<std::runtime_error>([&] { output.OpenFile(Path("x"), 1); });
    EXPECT_TRUE(thrown.starts_with("WritePrivateProfileString failed with errorcode ")) << thrown;
    EXPECT_EQ(thrown.find(':'), std::string::npos) << "the described words only";
}

TEST_F(OutputErrors, ARemarkIsNoError) {
    LogKeeper log;
    Output output(Mode::Borrowed, Format::Xml);
    Heard heard(output);
    output.Remark("context 1: a row less");
    output.Put(kLife);
    EXPECT_EQ(heard.errors, Lines{"context 1: a row less"});
    EXPECT_EQ(log.Take(), InLog(heard.errors));
    EXPECT_EQ(output.Errors(), Lines());
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
        Context context = Context::Root("job");
        if (!onWorker) output.WriteToStream(stream, context.GetContextId());
        context.OpenScope();
        if (!onWorker) output.Flush();  // the end tag is one block too many
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

// What leaves a file empty is told once, when it is known.
using OutputHints = OutputTest;

TEST_F(OutputHints, WhatLeavesAFileEmptyIsLoggedOnce) {
    std::ofstream(Path("full")) << "kept";
    const auto wait = [](MetricsOutput& output) {  // for more than two cycles
        for (int cycle = 0; cycle < 3; ++cycle) {
            const Context context = Context::Root("later");
            output.Flush();
        }
    };
    struct Case {
        Mode mode;
        Format format;
        std::function<void(MetricsOutput&)> act;
        Lines lines;
    };
    const std::string undefined = Path("t") +
                                  " stays empty: no row definition was set before it was opened "
                                  "(SetRowDefinition)";
    unsigned long long before = 0, child = 0;
    const auto empty = [](unsigned long long id) {
        return "a target for context " + std::to_string(id) +
               " stays empty: the context has ended, or began before the output did";
    };
    const Case cases[] = {
        {Mode::Single,
         Format::CsvComma,
         [&](auto& output) {
             output.SetRowDefinition("a");
             output.OpenFile(Path("t"), 0);
             output.SetRowDefinition("b");
         },
         {}},
        {Mode::Single,
         Format::CsvComma,
         [&](auto& output) {
             output.OpenFile(Path("t"), 0);
             output.SetRowDefinition("a");
         },
         {undefined,
          "the row definition was set after a table was opened, which stays empty: set it before"}},
        {Mode::PerContext,
         Format::CsvPipe,
         [&](auto& output) {
             output.SetWildcardedOutputFile(Path("t"));
             const Context context = Context::Root("job");
             output.Flush();
         },
         {Path("t2") + undefined.substr(Path("t").size())}},
        {Mode::PerContext,
         Format::Xml,
         [&](auto& output) {
             const Context context = Context::Root("job");
             output.Flush();
         },
         {"PerContext has no pattern for its files (SetWildcardedOutputFile), so none is written"}},
        {Mode::PerContext,
         Format::Buffer,
         [&](auto& output) {
             const Context context = Context::Root("job");
             output.Flush();
         },
         {}},
        {Mode::Borrowed,
         Format::Xml,
         [&](auto& output) { output.OpenFile(Path("t"), 0); },
         {"a target for context 0 stays empty in this mode: there is no such root (contexts have id 0 while "
          "the manager is not collecting)"}},
        {Mode::Borrowed, Format::RawUnordered, [&](auto& output) { output.OpenFile(Path("t"), 0); }, {}},
        {Mode::Borrowed,
         Format::Xml,  // known while the output works
         [&](auto& output) {
             output.OpenFile(Path("t"), before);
             wait(output);
             output.SetError("x");  // after it nothing is looked for
         },
         {empty(1), "x"}},
        {Mode::Borrowed, Format::Xml, [&](auto& output) { output.OpenFile(Path("t"), before); }, {empty(1)}},
        {Mode::PerContext,
         Format::Xml,
         [&](auto& output) {
             output.SetWildcardedOutputFile(Path("t"));
             Context context = Context::Root("job");
             const unsigned long long id = context.GetContextId();
             context.Close();
             output.Flush();
             output.OpenFile(Path("t"), id);
         },
         {empty(2)}},
        {Mode::Borrowed,
         Format::Xml,  // none of them is late, and one is not there yet
         [&](auto& output) {
             const unsigned long long id = Context::Create(true);
             output.OpenFile(Path("a"), id);
             output.OpenFile(Path("b"), id + 100);
             Context context(0, output.OpenNewContextAndFile(Path("c")));
             wait(output);
             Context late(0, id);
         },
         {}},
        {Mode::Borrowed,
         Format::Xml,  // announced after its target was opened
         [&](auto& output) {
             Context context = Context::Root("job");
             child = Context::Create(false);
             output.OpenFile(Path("t"), child);
             wait(output);
         },
         {"context 3 is not a root, so nothing is written for it; it is part of its root's output"}},
        {Mode::Single,
         Format::Raw,
         [&](auto& output) {
             output.Close();
             output.OpenFile(Path("full"), 0);
         },
         {Path("full") + " is not written: the output is closed"}},
        {Mode::Single,
         Format::Raw,
         [&](auto& output) {
             output.SetError("x");
             output.OpenFile(Path("full"), 0);
         },
         {"x", Path("full") + " is not written: the output has stopped after an error"}},
    };
    for (const Case& test : cases) {
        MetricsManager::FreeInstance();
        LogKeeper log;
        Session session;
        before = Context::Root("before").GetContextId();
        MetricsOutput(Mode::Borrowed, Format::Raw).Flush();
        for (int twice = 0; twice < 2; ++twice) {
            MetricsOutput output(test.mode, test.format);
            test.act(output);
            output.Close();
            Lines expected = test.lines;
            if (twice == 1) std::erase_if(expected, [](const auto& line) { return line != "x"; });
            EXPECT_EQ(log.Take(), InLog(expected)) << "case " << &test - cases;
        }
        EXPECT_EQ(ReadFile(Path("full")), "kept");
    }
}

TEST_F(OutputHints, UnknownMnemonicsAreLoggedOnce) {
    LogKeeper log;
    EXPECT_EQ(MetricsBitsUtils::GetMetricsBitsFromMnemonicList("tiem, mem,#x\nlco,"), 0x200000U);
    EXPECT_EQ(MetricsBitsUtils::GetMetricsBitFromMnemonic("tiem"), 0U);
    EXPECT_EQ(log.Take(), Lines{"MX: MetricsBitsUtils: unknown mnemonics: tiem, lco"});
}

}  // namespace
}  // namespace Metrics
