// Random trees of contexts come out walked in order, whatever the order in which threads post them.
#include <functional>
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
// are to come out. Each context does its steps in order; a child may run at any time once it has been
// created, also after its parent has closed.
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
        for (auto left = steps_; !running.empty();) {
            const auto one = running.begin() + static_cast<long>(Pick(running.size()));
            std::deque<MetricsEvent>& steps = left.at(*one);
            events.push_back(steps.front());
            steps.pop_front();
            if (steps.empty()) running.erase(one);
            if (IsCreation(events.back())) running.push_back(events.back().param2.AsUInt64());
        }
        return events;
    }

    // The tree of one root, walked in order.
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
        MetricsDemultiplexer demux(MetricsDemultiplexer::Mode::RequestedRoot);
        for (const MetricsEvent& event : arrival) demux.EnqueEvent(event);
        // Targets for half of the roots at once, for the others when their creation has been seen.
        Output borrowed(Mode::Borrowed, Format::Buffer);
        for (const std::uint64_t root : forest.Roots())
            if (root % 2 == 0) borrowed.OpenStream(nullptr, root);
        for (const MetricsEvent& event : arrival) {
            borrowed.Put({event});
            const std::uint64_t created = event.param2.AsUInt64();
            if (IsCreation(event) && event.param1 == 0 && created % 2 != 0)
                borrowed.OpenStream(nullptr, created);
        }
        for (const std::uint64_t root : forest.Roots()) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " root " << root);
            EXPECT_EQ(Decode(each.FindBuffer(root)), forest.Walk(root));
            EXPECT_EQ(Decode(borrowed.FindBuffer(root)), forest.Walk(root));
            Briefs dequeued;
            for (MetricsEvent event; demux.DequeEvent(root, event);) dequeued.push_back(Brief(event));
            EXPECT_EQ(dequeued, forest.Walk(root));
        }
    }
}

Briefs TreesOfSingle(const std::function<void(Output&)>& put) {
    Output output(Mode::Single, Format::Buffer);
    output.OpenStream(nullptr, 0);
    put(output);
    output.CloseDown();
    Briefs briefs = Decode(output.FindBuffer(0));
    std::erase_if(briefs, [](const std::string& brief) { return brief.starts_with("0:1:0:"); });
    return briefs;
}

TEST(Order, SinglePutsTreeAfterTree) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        RandomForest forest(seed, 150);
        const std::vector<MetricsEvent> arrival = forest.Arrival();
        EXPECT_EQ(TreesOfSingle([&](Output& output) { output.Put(arrival); }), forest.WalkAll());

        const Briefs pieces = TreesOfSingle([&](Output& output) { output.PutInPieces(arrival, seed); });
        Briefs expected;
        std::set<std::uint64_t> begun;
        while (expected.size() < pieces.size()) {
            const std::uint64_t root = std::stoull(pieces[expected.size()]);
            ASSERT_TRUE(begun.insert(root).second) << root;
            Append(expected, forest.Walk(root));
        }
        EXPECT_EQ(pieces, expected);
        EXPECT_EQ(begun.size(), forest.Roots().size());
    }
}

}  // namespace
}  // namespace Metrics
