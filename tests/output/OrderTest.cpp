// Random trees of contexts come out walked in order, whatever the order in which threads post them.
#include <map>
#include <set>

#include "metrics/MetricsDemultiplexer.h"
#include "tests/output/OutputFixture.h"

namespace Metrics {
namespace {

using namespace Testing;

bool IsCreation(const MetricsEvent& event) {
    return event.Type() == MetricsEventType::ContextCreate;
}

void Append(Briefs& briefs, const Briefs& more) {
    briefs.insert(briefs.end(), more.begin(), more.end());
}

// Trees of contexts grown at random, and their events in two orders: as threads may post them, and as they
// are to come out. Each context does its steps in order; one that is created may run at any time from then
// on: before its creation is posted, for its id is handed out first, or after its parent has closed.
class RandomForest {
  public:
    RandomForest(std::uint32_t seed, int contexts) : random_(seed), budget_(contexts) {
        while (budget_ > 0) steps_[0].push_back(Create(0, Grow(0)));
        std::shuffle(steps_[0].begin(), steps_[0].end(), random_);
    }

    const std::vector<std::uint64_t>& Roots() const { return roots_; }

    // One of the orders in which threads can post everything.
    std::vector<MetricsEvent> Arrival() {
        std::vector<MetricsEvent> events;
        std::vector<std::uint64_t> running = {0};
        std::set<std::uint64_t> begun;
        for (auto left = steps_; !running.empty();) {
            const std::size_t one = Pick(running.size());
            std::deque<MetricsEvent>& steps = left.at(running[one]);
            const MetricsEvent step = steps.front();
            if (IsCreation(step) && begun.insert(step.param2.AsUInt64()).second) {
                running.push_back(step.param2.AsUInt64());
                if (Pick(4) == 0) continue;
            }
            events.push_back(step);
            steps.pop_front();
            if (steps.empty()) running.erase(running.begin() + static_cast<long>(one));
        }
        return events;
    }

    // The tree of one root, walked in order; or of 0, the creations of roots.
    Briefs Walk(std::uint64_t root) const {
        Briefs briefs;
        for (const MetricsEvent& event : steps_.at(root)) {
            briefs.push_back(Brief(event));
            if (IsCreation(event) && event.param1 != 0) Append(briefs, Walk(event.param2.AsUInt64()));
        }
        return briefs;
    }

    // All trees, one after the other.
    Briefs WalkAll() const {
        Briefs briefs;
        for (const std::uint64_t root : roots_) Append(briefs, Walk(root));
        Append(briefs, Walk(0));
        return briefs;
    }

  private:
    std::size_t Pick(std::size_t below) { return random_() % below; }

    std::uint64_t Grow(std::uint64_t parent) {
        const std::uint64_t id = ++lastId_;
        --budget_;
        if (parent == 0) roots_.push_back(id);
        std::deque<MetricsEvent>& steps = steps_[id];
        steps.push_back(Construct(parent, id));
        for (std::size_t left = Pick(12); left != 0; --left) {
            const std::size_t choice = Pick(8);
            if (choice < 2 && budget_ > 0) {
                steps.push_back(Create(id, Grow(id)));
            } else if (choice == 2 && budget_ > 0) {
                steps.push_back(CreateRootIn(id, Grow(0)));
            } else if (choice == 3) {
                steps.push_back(OpenScope(id, "s"));
                steps.push_back(CloseScope(id, "s"));
            } else {
                steps.push_back(Value(id, "v", ++lastValue_));
            }
        }
        steps.push_back(Close(id));
        return id;
    }

    std::mt19937 random_;
    int budget_;
    std::uint64_t lastId_ = 0;
    std::int64_t lastValue_ = 0;
    std::vector<std::uint64_t> roots_;
    std::map<std::uint64_t, std::deque<MetricsEvent>> steps_;  // of each context; 0 creates roots
};

TEST(Order, EachRootGetsItsTree) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        RandomForest forest(seed, 150);
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
void ExpectTreeAfterTree(Briefs out, const RandomForest& forest) {
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
        RandomForest forest(seed, 150);
        const std::vector<MetricsEvent> arrival = forest.Arrival();
        Output whole(Mode::Single, Format::Buffer);
        whole.OpenStream(nullptr, 0);
        whole.Put(arrival);
        whole.CloseDown();
        EXPECT_EQ(Decode(whole.FindBuffer(0)), forest.WalkAll());

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
