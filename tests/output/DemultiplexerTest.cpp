#include "metrics/MetricsDemultiplexer.h"

#include "tests/output/OutputFixture.h"

namespace Metrics {
namespace {

using namespace Testing;
using Order = MetricsDemultiplexer::Mode;
using Ids = std::vector<unsigned long long>;

// A demultiplexer, and what comes out of it as texts.
class Demux : public MetricsDemultiplexer {
  public:
    using MetricsDemultiplexer::MetricsDemultiplexer;

    // Returns the new roots.
    Ids Put(const std::vector<MetricsEvent>& events) {
        Ids roots;
        for (const MetricsEvent& event : events) roots.push_back(EnqueEvent(event));
        std::erase(roots, 0);
        return roots;
    }
    Briefs Take(std::uint64_t root) {
        Briefs briefs;
        for (MetricsEvent event; DequeEvent(root, event);) briefs.push_back(Brief(event));
        return briefs;
    }
    Briefs TakeForced(std::uint64_t root, std::uint64_t limitedTo) {
        EnableForcedChildClosure(true, limitedTo);
        Briefs briefs = Take(root);
        EnableForcedChildClosure(false, 0);
        return briefs;
    }
};

// In which order events come out is the business of the random trees.
TEST(Demultiplexer, ReportsRootsAndDropsEventsOfContextsThatAreNotOpenButForCreations) {
    Demux demux(Order::RequestedRoot);
    EXPECT_EQ(
        demux.Put({Create(0, 1), Value(1, "early", 1), Close(1), Create(1, 2), Construct(0, 1),
                   CreateRootIn(1, 7), Close(1), Value(1, "late", 1), Close(1), Construct(1, 2), Close(2)}),
        Ids({1, 7}));
    EXPECT_EQ(demux.Take(1), Briefs({"1:1:1:2", "2:2:1:2", "2:3:0:0", "1:2:0:1", "1:1:0:7", "1:3:0:0"}));
    EXPECT_EQ(demux.Take(8), Briefs());
    demux.Put({Construct(0, 1)});
    EXPECT_EQ(demux.Take(1), Briefs()) << "its root has ended";
}

TEST(Demultiplexer, LowestRootForcesOpenRootsTooButOnlyWithoutALimit) {
    Demux demux(Order::LowestRoot);
    demux.Put(
        {Create(0, 1), Construct(0, 1), OpenScope(1, "a"), Create(1, 2), Construct(1, 2), Create(0, 3)});
    EXPECT_EQ(demux.Take(0).size(), 4U);
    EXPECT_EQ(demux.TakeForced(0, 1), Briefs());
    EXPECT_EQ(demux.TakeForced(0, 0), Briefs({"2:4:0:0", "1:4:1:0"})) << "3 may yet be constructed";
    demux.Put({Construct(0, 3), Close(3)});
    EXPECT_EQ(demux.Take(0), Briefs({"3:2:0:3", "3:3:0:0", "0:1:0:1", "0:1:0:3"}));
}

TEST(Demultiplexer, LowestRootLetsCreationsOutBetweenRootsBeforeTooManyWait) {
    constexpr std::uint64_t kRoots = 65537;
    Demux demux(Order::LowestRoot);
    demux.Put({Create(0, 1), Construct(0, 1)});
    EXPECT_EQ(demux.Take(0).size(), 1U);
    for (std::uint64_t id = 2; id <= kRoots; ++id) demux.Put({Create(0, id)});
    EXPECT_EQ(demux.Take(0), Briefs());
    demux.Put({Close(1), Construct(0, 2), Close(2)});
    const Briefs out = demux.Take(0);
    ASSERT_EQ(out.size(), 1 + kRoots + 2);
    EXPECT_EQ(out.front(), "1:3:0:0");
    EXPECT_EQ(out[1], "0:1:0:1");
    EXPECT_EQ(out[kRoots], "0:1:0:65537");
    EXPECT_EQ(out.back(), "2:3:0:0");
}

// Streams that no thread produces: nothing may break, and whatever was put in comes out at most once.
TEST(Demultiplexer, SurvivesAnyStream) {
    constexpr MetricsEventType kTypes[] = {
        MetricsEventType::ContextCreate, MetricsEventType::ContextConstruct,
        MetricsEventType::ContextClose,  MetricsEventType::DemuxSynthesized,
        MetricsEventType::ScopeOpen,     MetricsEventType::ScopeClose,
        MetricsEventType::ScopeValue,    MetricsEventType::StateChanged};
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        std::mt19937 random(seed);
        const auto id = [&] { return std::uint64_t{random() % 6}; };
        Demux demux(seed % 2 == 0 ? Order::LowestRoot : Order::RequestedRoot);
        for (int step = 0; step < 1000; ++step) {
            demux.Put({Make(kTypes[random() % std::size(kTypes)], id(), id(), id())});
            if (random() % 8 == 0) demux.Take(id());
            if (random() % 32 == 0) demux.TakeForced(id(), id());
        }
        std::size_t taken = 0;
        for (std::uint64_t root = 0; root < 6; ++root) taken += demux.TakeForced(root, 0).size();
        EXPECT_LE(taken, 2000U);
    }
}

}  // namespace
}  // namespace Metrics
