// What leaves a file empty is logged once, when it is known.
#include "metrics/Context.h"
#include "metrics/MetricsBitsUtils.h"
#include "metrics/Session.h"
#include "tests/output/OutputFixture.h"
#include "tests/support/Recorder.h"

namespace Metrics {
namespace {

using namespace Testing;

using Id = unsigned long long;

struct OutputHints : OutputTest {
    // What is logged, of two outputs that do the same.
    void Expect(const char* what, Mode mode, Format format, const std::function<void(MetricsOutput&)>& act,
                const Lines& lines) {
        MetricsManager::FreeInstance();
        LogKeeper log;
        Session session;
        before_ = Context::Root("before").GetContextId();
        MetricsOutput(Mode::Borrowed, Format::Raw).Flush();
        for (int twice = 0; twice < 2; ++twice) {
            MetricsOutput output(mode, format);
            act(output);
            output.Close();
            Lines expected = lines;
            if (twice == 1) std::erase_if(expected, [](const auto& line) { return line != "x"; });
            EXPECT_EQ(log.Take(), InLog(expected)) << what;
        }
    }
    static Id DoJob(MetricsOutput& output) {
        const Id id = Context::Root("job").GetContextId();
        output.Flush();
        return id;
    }
    static void WaitForMoreThanTwoCycles(MetricsOutput& output) {
        for (int cycle = 0; cycle < 3; ++cycle) DoJob(output);
    }

    Id before_ = 0;  // a context that ended before the output began
    const std::string table_ = Path("t");
};

TEST_F(OutputHints, TablesWithoutADefinition) {
    const std::string undefined =
        " stays empty: no row definition was set before it was opened (SetRowDefinition)";
    const auto define = [](auto& output) { output.SetRowDefinition("a"); };
    const auto open = [&](auto& output) { output.OpenFile(table_, 0); };
    Expect("in time", Mode::Single, Format::CsvComma,
           [&](auto& o) {
               define(o);
               open(o);
               define(o);
           },
           {});
    Expect("late", Mode::Single, Format::CsvComma,
           [&](auto& o) {
               open(o);
               define(o);
           },
           {table_ + undefined,
            "the row definition was set after a table was opened, which stays empty: set it before"});
    const auto job = [&](auto& output) {
        output.SetWildcardedOutputFile(table_);
        DoJob(output);
    };
    Expect("never", Mode::PerContext, Format::CsvPipe, job, {table_ + "2" + undefined});
}

TEST_F(OutputHints, TargetsWithoutARoot) {
    const auto open = [&](auto& output) { output.OpenFile(table_, before_); };
    const auto empty = [](Id id) {
        return "a target for context " + std::to_string(id) +
               " stays empty: the context has ended, is no root, or began before the output did";
    };
    Expect("no pattern", Mode::PerContext, Format::Xml, DoJob,
           {"PerContext has no pattern for its files (SetWildcardedOutputFile), so none is written"});
    Expect("no pattern needed", Mode::PerContext, Format::Buffer, DoJob, {});
    const auto openZero = [&](auto& output) { output.OpenFile(table_, 0); };
    Expect(
        "no id", Mode::Borrowed, Format::Xml, openZero,
        {"a target for context 0 stays empty in this mode: there is no such root (contexts have id 0 while "
         "the manager is not collecting)"});
    Expect("no id needed", Mode::Borrowed, Format::RawUnordered, openZero, {});
    Expect("known at the close", Mode::Borrowed, Format::Xml, open, {empty(1)});
    const auto workOn = [&](auto& output) {
        open(output);
        WaitForMoreThanTwoCycles(output);
        output.SetError("x");  // after it nothing is looked for
    };
    Expect("known while the output works", Mode::Borrowed, Format::Xml, workOn, {empty(1), "x"});
    const auto openLate = [&](auto& output) {
        output.SetWildcardedOutputFile(table_);
        output.OpenFile(table_, DoJob(output));
    };
    Expect("ended", Mode::PerContext, Format::Xml, openLate, {empty(2)});
    const auto openEarly = [&](auto& output) {
        const Id id = Context::Create(true);
        output.OpenFile(Path("a"), id);
        output.OpenFile(Path("b"), id + 100);
        Context context(0, output.OpenNewContextAndFile(Path("c")));
        WaitForMoreThanTwoCycles(output);
        Context late(0, id);
    };
    Expect("none is late, and one is not there yet", Mode::Borrowed, Format::Xml, openEarly, {});
    const auto openChild = [&](auto& output) {
        Context context = Context::Root("job");
        output.OpenFile(table_, Context::Create(false));
        WaitForMoreThanTwoCycles(output);
    };
    Expect("announced after its target was opened", Mode::Borrowed, Format::Xml, openChild,
           {"context 3 is not a root, so nothing is written for it; it is part of its root's output"});
}

TEST_F(OutputHints, FilesOfAnOutputThatIsOver) {
    const std::string full = Path("full");
    std::ofstream(full) << "kept";
    const auto open = [&](auto& output) { output.OpenFile(full, 0); };
    Expect("closed", Mode::Single, Format::Raw,
           [&](auto& o) {
               o.Close();
               open(o);
           },
           {full + " is not written: the output is closed"});
    Expect("failed", Mode::Single, Format::Raw,
           [&](auto& o) {
               o.SetError("x");
               open(o);
           },
           {"x", full + " is not written: the output has stopped after an error"});
    EXPECT_EQ(ReadFile(full), "kept");
}

TEST_F(OutputHints, UnknownMnemonicsAreLoggedOnce) {
    LogKeeper log;
    EXPECT_EQ(MetricsBitsUtils::GetMetricsBitsFromMnemonicList("tiem, mem,#x\nlco,"), 0x200000U);
    EXPECT_EQ(MetricsBitsUtils::GetMetricsBitFromMnemonic("tiem"), 0U);
    EXPECT_EQ(log.Take(), Lines{"MX: MetricsBitsUtils: unknown mnemonics: tiem, lco"});
}

}  // namespace
}  // namespace Metrics
