// Random trees of contexts come out walked in order, whatever the order in which threads post them.
#include <map>
#include <set>

#include "metrics/MetricsDemultiplexer.h"
#include "tests/output/RandomMarks.h"

namespace Metrics {
namespace {

using namespace Testing;

bool IsCreation(const MetricsEvent& event) {
    return event.Type() == MetricsEventType::ContextCreate;
}

void Append(Briefs& briefs, const Briefs& more) {
    briefs.insert(briefs.end(), more.begin(), more.end());
}

// Trees of contexts, walked in order.
class Forest {
  public:
    explicit Forest(std::uint32_t seed) : marks_(seed, 150, 1000, true), steps_(marks_.Steps()) {}

    std::vector<MetricsEvent> Arrival() const { return marks_.Arrival(); }
    std::vector<std::uint64_t> Roots() const { return marks_.Roots(); }

    // The tree of one root; or of 0, the creations of roots.
    Briefs Walk(std::uint64_t root) const {
        Briefs briefs;
        for (const MetricsEvent& event : steps_.at(root)) {
            briefs.push_back(Brief(event));
            if (IsCreation(event) && event.param1 != 0) Append(briefs, Walk(event.param2.AsUInt64()));
        }
        return briefs;
    }

  private:
    const RandomMarks marks_;
    const std::map<std::uint64_t, std::vector<MetricsEvent>> steps_;
};

TEST(Order, EachRootGetsItsTree) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        const Forest forest(seed);
        const std::vector<MetricsEvent> arrival = forest.Arrival();
        Output each(Mode::PerContext, Format::Buffer);
        each.PutInPieces(arrival, seed);
        // Targets for half of the roots at once, for the others when their creation has been seen.
        Output borrowed(Mode::Borrowed, Format::Buffer);
        for (const std::uint64_t root : forest.Roots())
            if (root % 2 == 0) borrowed.OpenStream(nullptr, root);
        MetricsDemultiplexer demux(MetricsDemultiplexer::Mode::RequestedRoot);
        std::map<std::uint64_t, Briefs> dequeued;
        for (const MetricsEvent& event : arrival) {
            borrowed.Put({event});
            const std::uint64_t created = event.param2.AsUInt64();
            if (IsCreation(event) && event.param1 == 0 && created % 2 != 0)
                borrowed.OpenStream(nullptr, created);
            demux.EnqueEvent(event);
            for (const std::uint64_t root : forest.Roots())
                for (MetricsEvent next; demux.DequeEvent(root, next);) dequeued[root].push_back(Brief(next));
        }
        for (const std::uint64_t root : forest.Roots()) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " root " << root);
            EXPECT_EQ(Decode(each.FindBuffer(root)), forest.Walk(root));
            EXPECT_EQ(Decode(borrowed.FindBuffer(root)), forest.Walk(root));
            EXPECT_EQ(dequeued[root], forest.Walk(root));
        }
    }
}

// Whichever root comes first; what belongs to none stands between them.
void ExpectTreeAfterTree(Briefs out, const Forest& forest) {
    const auto trees = std::stable_partition(
        out.begin(), out.end(), [](const std::string& brief) { return brief.starts_with("0:"); });
    EXPECT_EQ(Briefs(out.begin(), trees), forest.Walk(0));
    out.erase(out.begin(), trees);
    Briefs expected;
    std::set<std::uint64_t> begun;
    while (expected.size() < out.size()) {
        const std::uint64_t root = std::stoull(out[expected.size()]);
        ASSERT_TRUE(begun.insert(root).second) << root;
        Append(expected, forest.Walk(root));
    }
    EXPECT_EQ(out, expected);
    EXPECT_EQ(begun.size(), forest.Roots().size());
}

TEST(Order, SinglePutsTreeAfterTree) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        const Forest forest(seed);
        const std::vector<MetricsEvent> arrival = forest.Arrival();
        Output whole(Mode::Single, Format::Buffer);
        whole.OpenStream(nullptr, 0);
        whole.Put(arrival);
        whole.CloseDown();
        Briefs all;
        for (const std::uint64_t root : forest.Roots()) Append(all, forest.Walk(root));
        Append(all, forest.Walk(0));
        EXPECT_EQ(Decode(whole.FindBuffer(0)), all);

        Output pieces(Mode::Single, Format::Buffer);
        pieces.OpenStream(nullptr, 0);
        pieces.PutInPieces(arrival, seed);
        pieces.CloseDown();
        ExpectTreeAfterTree(Decode(pieces.FindBuffer(0)), forest);

        MetricsDemultiplexer demux(MetricsDemultiplexer::Mode::LowestRoot);
        Briefs dequeued;
        for (const MetricsEvent& event : arrival) {
            demux.EnqueEvent(event);
            for (MetricsEvent next; demux.DequeEvent(2, next);) dequeued.push_back(Brief(next));
        }
        ExpectTreeAfterTree(dequeued, forest);
    }
}

}  // namespace
}  // namespace Metrics
