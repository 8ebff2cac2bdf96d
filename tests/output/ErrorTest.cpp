// What an output does when something fails.
#include <stdexcept>

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
    EXPECT_THROW(MetricsOutput(static_cast<Mode>(3), Format::Raw), std::invalid_argument);
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
    EXPECT_EQ(output.Errors(), Briefs({"failed to open file: " + Path("no/such/folder-2") + ": No such file or directory"}));
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

TEST_F(OutputErrors, ATargetOfAContextThatIsNoRootIsMentionedOnce) {
    LogKeeper log;
    Output output(Mode::Borrowed, Format::Xml);
    output.Put({Create(0, 1), Construct(0, 1), Create(1, 2)});
    for (const std::uint64_t id : {1, 2, 2}) output.Listen(id);
    EXPECT_EQ(log.Take(), Lines{"MX: MetricsOutput: context 2 is not a root, so nothing is written for it; "
                                "it is part of its root's output"});
}

}  // namespace
}  // namespace Metrics
