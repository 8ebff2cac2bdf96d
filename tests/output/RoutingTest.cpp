// Which event reaches which target.
#include "tests/output/OutputFixture.h"
#include "tests/support/Recorder.h"

namespace Metrics {
namespace {

using namespace Testing;

TEST(Routing, UnorderedGoesToEveryTargetAsItComes) {
    Output output(Mode::Borrowed, Format::RawUnordered);
    const std::stringbuf& first = output.Listen(1);
    output.Put({Value(9, "a", 1), Create(0, 1), Close(1)});
    const std::stringbuf& second = output.Listen(2);
    output.Put({Value(1, "b", 2)});
    EXPECT_EQ(first.str(),
              "timestamp,context_id,component_id,event_type,param1,param2\n"
              "2013-04-08 12:00:00,9,7,10,\"a\",\"1\"\n"
              "2013-04-08 12:00:00,0,7,1,\"0\",\"1\"\n"
              "2013-04-08 12:00:00,1,7,3,\"0\",\"0\"\n"
              "2013-04-08 12:00:00,1,7,10,\"b\",\"2\"\n");
    EXPECT_EQ(second.str(),
              "timestamp,context_id,component_id,event_type,param1,param2\n"
              "2013-04-08 12:00:00,1,7,10,\"b\",\"2\"\n");
}

TEST(Routing, TwoTargetsOfOneContextGetTheSameAndBothCloseWithIt) {
    Output output(Mode::Borrowed, Format::Xml);
    const std::stringbuf& first = output.Listen(1);
    output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "a")});
    const std::stringbuf& second = output.Listen(1);
    output.Put({OpenScope(1, "b"), CloseScope(1, "b"), CloseScope(1, "a"), Close(1)});
    EXPECT_EQ(first.str(), "<a>\n  <b>\n  </b>\n</a>\n");
    EXPECT_EQ(second.str(), "<b>\n</b>\n") << "an end without a beginning writes nothing";
    output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "late"), CloseScope(1, "late")});
    EXPECT_EQ(first.str(), "<a>\n  <b>\n  </b>\n</a>\n");
}

TEST(Routing, ATargetThatComesAfterTheEndOfItsRootGetsNothing) {
    Output output(Mode::Borrowed, Format::Buffer);
    output.OpenStream(nullptr, 1);
    EXPECT_EQ(output.FindBuffer(1), nullptr);
    output.Put({Create(0, 1), Construct(0, 1), Close(1)});
    output.Put({Create(0, 2), Construct(0, 2), Create(2, 3), Close(2), Construct(2, 3), Close(3)});
    EXPECT_EQ(Decode(output.FindBuffer(1)), Briefs({"1:2:0:1", "1:3:0:0"}));
    output.OpenStream(nullptr, 1);
    output.OpenStream(nullptr, 2);
    output.CloseDown();
    EXPECT_EQ(Decode(output.FindBuffer(1)), Briefs()) << "it replaces the buffer";
    EXPECT_EQ(Decode(output.FindBuffer(2)), Briefs());
}

TEST(Routing, FinishForcesTheChildrenOfClosedRootsOnlyAndCloseForcesAll) {
    Output output(Mode::PerContext, Format::Buffer);
    output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "r"), Create(1, 2), Construct(1, 2),
                OpenScope(2, "a"), OpenScope(2, "b"), CloseScope(2, "b"), OpenScope(2, "c"), Create(2, 3),
                Construct(2, 3), Create(3, 5), Create(1, 4)});
    output.Put({Create(0, 8), Construct(0, 8), Create(8, 9), Construct(8, 9)});
    output.Drain(0);
    output.Put({CloseScope(1, "r"), Close(1)});
    output.Drain(8);
    EXPECT_EQ(output.FindBuffer(1), nullptr);
    output.Drain(1);
    const auto buffer = output.FindBuffer(1);
    EXPECT_EQ(Decode(buffer), Briefs({"1:2:0:1", "1:6:r:0", "1:1:1:2", "2:2:1:2", "2:6:a:0", "2:6:b:0",
                                      "2:7:b:0", "2:6:c:0", "2:1:2:3", "3:2:2:3", "3:1:3:5", "3:4:0:0",
                                      "2:4:2:0", "1:1:1:4", "1:7:r:0", "1:3:0:0"}))
        << "4 and 5 were never constructed";
    const MetricsEvent forced = ReadEvents(*buffer).at(11);
    EXPECT_EQ(forced.ComponentId(), 7U);
    EXPECT_EQ(forced.timestamp.Kind(), MetricsValueType::DateTime);
    EXPECT_EQ(output.FindBuffer(8), nullptr);
    output.CloseDown();
    EXPECT_EQ(Decode(output.FindBuffer(8)), Briefs({"8:2:0:8", "8:1:8:9", "9:2:8:9", "9:4:0:0", "8:4:0:0"}));
}

TEST(Routing, ErrorsWriteWhatWasHeldBackAndEndEverything) {
    Output output(Mode::Borrowed, Format::Xml);
    const std::stringbuf& stream = output.Listen(1);
    output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "a"), Create(1, 2), Value(1, "held", 1)});
    EXPECT_EQ(stream.str(), "<a>\n");
    output.SetError("x");
    EXPECT_EQ(stream.str(),
              "<a>\n  <held>1</held>\n  <ForceCloseContextDepth>1</ForceCloseContextDepth>\n</a>\n");
    const std::string before = stream.str();
    output.Put({Value(1, "late", 1), Close(1)});
    EXPECT_EQ(stream.str(), before);
    output.SetError("y");
    EXPECT_EQ(output.Errors(), Briefs({"x", "y"}));
}

TEST(Routing, MutingLeavesOutTimesAndIdentities) {
    Output output(Mode::Borrowed, Format::Xml);
    output.MuteVolatileData();
    const std::stringbuf& stream = output.Listen(1);
    output.Put({Create(0, 1), Construct(0, 1), Attribute(1, "pid", 1), Attribute(1, "comp", "c"),
                Attribute(1, "at", "2026-11-21T07:31:53.000120Z"),
                Make(MetricsEventType::NameValue, 1, FourCC("tid"), 5), OpenScope(1, "a"),
                Make(MetricsEventType::ScopeOpen, 1, FourCC("time")), Value(1, "elapsed", 1.5),
                CloseScope(1, "time"), Value(1, "n", 1), OpenScope(1, "time"), Value(1, "gone", 1),
                OpenScope(1, "b"), CloseScope(1, "b"), CloseScope(1, "a"), Close(1)});
    EXPECT_EQ(stream.str(), "<a comp=\"c\">\n  <n>1</n>\n  <b>\n  </b>\n</a>\n")
        << "any closing ends the muting";
}

TEST(Routing, ARootWithoutTargetKeepsAMillionEventsThenNone) {
    LogKeeper log;
    Output output(Mode::Borrowed, Format::Buffer);
    output.Put({Create(0, 1), Construct(0, 1)});
    const std::vector<MetricsEvent> many(1000, Value(1, "v", 1));
    for (int batch = 0; batch < 999; ++batch) output.Put(many);
    EXPECT_EQ(log.Take(), Lines());
    output.Put(many);
    EXPECT_EQ(log.Take(), Lines{"MX: MetricsOutput: context 1 has no target; its first 1000000 events and "
                                "all later ones are dropped"});
    output.OpenStream(nullptr, 1);
    output.CloseDown();
    EXPECT_EQ(Decode(output.FindBuffer(1)), Briefs());
}

TEST(Routing, CountsWhatHasNoPlace) {
    const auto leftOut = [] { return detail::Core::Current()->Statistics().leftOut; };
    const std::uint64_t before = leftOut();
    Output output(Mode::PerContext, Format::Buffer);
    output.Put(
        {Create(0, 1), Construct(0, 1), Value(1, "in", 1), Create(0, 5), Construct(0, 5), Value(0, "v", 1)});
    output.Put({OpenScope(1, "a"), Close(1), CloseScope(1, "a"), Value(1, "late", 1),
                Value(77, "before the output", 1)});
    EXPECT_EQ(leftOut() - before, 2U);
    output.Put({Create(1, 2), Construct(1, 2), Value(2, "under a root that has ended", 1), Close(2)});
    output.CloseDown();
    EXPECT_EQ(leftOut() - before, 2U + 4U);
}

}  // namespace
}  // namespace Metrics
