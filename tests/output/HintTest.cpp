// What leaves a file empty is logged once, when it is known.
#include "metrics/Context.h"
#include "metrics/MetricsBitsUtils.h"
#include "metrics/Session.h"
#include "tests/output/OutputFixture.h"
#include "tests/support/Recorder.h"

namespace Metrics {
namespace {

using namespace Testing;

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
               " stays empty: the context has ended, is no root, or began before the output did";
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
