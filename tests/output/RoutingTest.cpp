// Which event reaches which target, and in which order.
#include <algorithm>

#include "tests/output/OutputFixture.h"
#include "tests/output/RandomForest.h"

namespace Metrics {
namespace {

using namespace Testing;

class RoutingSeedTest : public testing::TestWithParam<std::uint32_t> {};

TEST_P(RoutingSeedTest, PerContextGivesEachRootItsTree) {
    RandomForest forest(GetParam(), 150);
    Output output(Mode::PerContext, Format::Buffer);
    output.PutInPieces(forest.Arrival(), GetParam());
    for (const std::uint64_t root : forest.Roots()) {
        EXPECT_EQ(Decode(output.FindBuffer(root)), forest.Walk(root)) << "root " << root;
    }
}

TEST_P(RoutingSeedTest, BorrowedGivesWhatWasKeptBeforeTheTargetCame) {
    RandomForest forest(GetParam(), 150);
    const std::vector<MetricsEvent> arrival = forest.Arrival();
    Output output(Mode::Borrowed, Format::Buffer);
    // Targets for half of the roots at once, for the others when their creation has been seen.
    for (const std::uint64_t root : forest.Roots())
        if (root % 2 == 0) output.OpenStream(nullptr, root);
    for (const MetricsEvent& event : arrival) {
        output.Put({event});
        const bool isRoot = event.Type() == MetricsEventType::ContextCreate && event.param1.AsInt64() == 0;
        if (isRoot && event.param2.AsInt64() % 2 != 0) output.OpenStream(nullptr, event.param2.AsUInt64());
    }
    for (const std::uint64_t root : forest.Roots()) {
        EXPECT_EQ(Decode(output.FindBuffer(root)), forest.Walk(root)) << "root " << root;
    }
}

TEST_P(RoutingSeedTest, SinglePutsTreeAfterTree) {
    RandomForest forest(GetParam(), 150);
    Output pieces(Mode::Single, Format::Buffer);
    Output whole(Mode::Single, Format::Buffer);
    pieces.OpenStream(nullptr, 0);
    whole.OpenStream(nullptr, 0);
    const std::vector<MetricsEvent> arrival = forest.Arrival();
    pieces.PutInPieces(arrival, GetParam());
    whole.Put(arrival);
    pieces.CloseDown();
    whole.CloseDown();

    const auto isRootless = [](const std::string& brief) { return brief.starts_with("0:1:0:"); };
    Briefs out = Decode(pieces.FindBuffer(0));
    std::erase_if(out, isRootless);
    std::vector<Briefs> trees;
    for (const std::uint64_t root : forest.Roots()) trees.push_back(forest.Walk(root));
    std::size_t at = 0;
    while (at < out.size()) {
        const auto next = std::find_if(trees.begin(), trees.end(),
                                       [&](const Briefs& tree) { return tree.front() == out[at]; });
        ASSERT_NE(next, trees.end()) << out[at];
        ASSERT_TRUE(std::equal(next->begin(), next->end(), out.begin() + static_cast<long>(at)));
        at += next->size();
        trees.erase(next);
    }
    EXPECT_TRUE(trees.empty());

    Briefs ascending;
    for (const std::uint64_t root : forest.Roots())
        for (const std::string& brief : forest.Walk(root)) ascending.push_back(brief);
    Briefs atOnce = Decode(whole.FindBuffer(0));
    std::erase_if(atOnce, isRootless);
    EXPECT_EQ(atOnce, ascending);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RoutingSeedTest, testing::Range(1U, 21U));

TEST(Routing, UnorderedGoesToEveryTargetAsItComes) {
    Output output(Mode::Borrowed, Format::RawUnordered);
    const std::ostringstream& first = output.Listen(1);
    output.Put({Value(9, "a", 1), Create(0, 1), Close(1)});
    const std::ostringstream& second = output.Listen(2);
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
    const std::ostringstream& first = output.Listen(1);
    output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "a")});
    const std::ostringstream& second = output.Listen(1);
    output.Put({OpenScope(1, "b"), CloseScope(1, "b"), CloseScope(1, "a"), Close(1)});
    EXPECT_EQ(first.str(), "<a>\n  <b>\n  </b>\n</a>\n");
    EXPECT_EQ(second.str(), "<b>\n</b>\n") << "an end without a beginning writes nothing";
    output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "late"), CloseScope(1, "late")});
    EXPECT_EQ(first.str(), "<a>\n  <b>\n  </b>\n</a>\n");
}

TEST(Routing, ALaterTargetOfTheSameContextReplacesTheBuffer) {
    Output output(Mode::Borrowed, Format::Buffer);
    output.OpenStream(nullptr, 1);
    EXPECT_EQ(output.FindBuffer(1), nullptr);
    output.Put({Create(0, 1), Construct(0, 1), Close(1)});
    const auto first = output.FindBuffer(1);
    EXPECT_EQ(Decode(first), Briefs({"1:2:0:1", "1:3:0:0"}));
    EXPECT_EQ(output.FindBuffer(1), first);
    output.OpenStream(nullptr, 1);
    output.CloseDown();
    EXPECT_EQ(Decode(output.FindBuffer(1)), Briefs());
    EXPECT_NE(output.TakeBuffer(1), nullptr);
    EXPECT_EQ(output.TakeBuffer(1), nullptr);
}

TEST(Routing, FinishForcesTheChildrenOfClosedRootsOnlyAndCloseForcesAll) {
    const std::vector<MetricsEvent> open = {
        Create(0, 1),      Construct(0, 1),   OpenScope(1, "r"), Create(1, 2),    Construct(1, 2),
        OpenScope(2, "a"), OpenScope(2, "b"), Create(2, 3),      Construct(2, 3), Create(1, 4)};
    Output output(Mode::PerContext, Format::Buffer);
    output.Put(open);
    output.Put({Create(0, 8), Construct(0, 8), Create(8, 9), Construct(8, 9)});
    output.Drain(0);
    output.Put({CloseScope(1, "r"), Close(1)});
    output.Drain(8);
    EXPECT_EQ(output.FindBuffer(1), nullptr);
    output.Drain(1);
    EXPECT_EQ(Decode(output.FindBuffer(1)),
              Briefs({"1:2:0:1", "1:6:r:0", "1:1:1:2", "2:2:1:2", "2:6:a:0", "2:6:b:0", "2:1:2:3", "3:2:2:3",
                      "3:4:0:0", "2:4:2:0", "1:1:1:4", "1:7:r:0", "1:3:0:0"}));
    EXPECT_EQ(output.FindBuffer(8), nullptr);
    output.CloseDown();
    EXPECT_EQ(Decode(output.FindBuffer(8)), Briefs({"8:2:0:8", "8:1:8:9", "9:2:8:9", "9:4:0:0", "8:4:0:0"}));
}

TEST(Routing, ErrorsWriteWhatWasHeldBackAndEndEverything) {
    Output output(Mode::Borrowed, Format::Xml);
    const std::ostringstream& stream = output.Listen(1);
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
    const std::ostringstream& stream = output.Listen(1);
    output.Put({Create(0, 1), Construct(0, 1), Attribute(1, "pid", 1), Attribute(1, "comp", "c"),
                Make(MetricsEventType::NameValue, 1, FourCC("tid"), 5), OpenScope(1, "a"),
                Make(MetricsEventType::ScopeOpen, 1, FourCC("time")), Value(1, "elapsed", 1.5),
                CloseScope(1, "time"), Value(1, "n", 1), OpenScope(1, "time"), Value(1, "gone", 1),
                OpenScope(1, "b"), CloseScope(1, "b"), CloseScope(1, "a"), Close(1)});
    EXPECT_EQ(stream.str(), "<a comp=\"c\">\n  <n>1</n>\n  <b>\n  </a>\n") << "any closing ends the muting";
}

TEST(Routing, ARootWithoutTargetIsForgottenOnceItHasEnded) {
    Output output(Mode::Borrowed, Format::Buffer);
    output.Put({Create(0, 1), Construct(0, 1), Create(1, 2), Close(1), Construct(1, 2), Close(2)});
    output.OpenStream(nullptr, 1);
    output.CloseDown();
    EXPECT_EQ(Decode(output.FindBuffer(1)), Briefs());
}

TEST(Routing, ARootWithoutTargetKeepsAMillionEventsThenNone) {
    std::string logged;
    MetricsManager::GetInstance().SetLogDelegate([&](const std::string& text) { logged = text; });
    Output output(Mode::Borrowed, Format::Buffer);
    output.Put({Create(0, 1), Construct(0, 1)});
    const std::vector<MetricsEvent> many(1000, Value(1, "v", 1));
    for (int batch = 0; batch < 999; ++batch) output.Put(many);
    EXPECT_EQ(logged, "");
    output.Put(many);
    EXPECT_NE(logged.find("context 1 has no target"), std::string::npos) << logged;
    output.OpenStream(nullptr, 1);
    output.CloseDown();
    EXPECT_EQ(Decode(output.FindBuffer(1)), Briefs());
    MetricsManager::GetInstance().SetLogDelegate({});
}

}  // namespace
}  // namespace Metrics
