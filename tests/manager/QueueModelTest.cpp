// The queues and the cycle in random orders of their threads' steps. Where loads may give old values too, a
// memory order that is too weak is as much a fault as a wrong step.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <tuple>
#include <vector>

#include "tests/manager/model/QueueModel.h"

namespace Metrics::Testing::Model {
namespace {

// Any number of threads and contexts, which visit each other in an order that the host makes for each
// context; at last one thread closes the first context, whose children the others are.
struct Visit {
    int context;
    int turn;  // the how manieth of this context
    int events;
    int tick;
    bool opens;
    bool together;
};

void BeginRandom(System& system, Scheduler& scheduler, std::mt19937& random) {
    const auto below = [&random](std::size_t count) { return static_cast<int>(random() % count); };
    const auto threads = static_cast<std::size_t>(2 + below(3));
    std::vector<int> turns(system.contexts.size());
    std::vector<std::vector<Visit>> visits(threads);
    for (int i = 1 + below(14), tick = 0; i > 0; --i, tick += below(2)) {
        const int context = below(turns.size());
        visits[static_cast<std::size_t>(below(threads))].push_back(
            {context, turns[static_cast<std::size_t>(context)]++, 1 + below(4), tick, below(2) == 0,
             below(4) == 0});
    }
    const int closes = below(threads + 1);  // or nobody
    for (std::size_t i = 0; i < threads; ++i) {
        const bool stays = below(4) == 0;
        const bool closesHere = static_cast<int>(i) == closes;
        scheduler.AddThread([&system, turns, name = i + 1, mine = visits[i], stays, closesHere] {
            Producer thread(system, name);
            for (const auto& [context, turn, events, tick, opens, together] : mine) {
                thread.Await(context, turn);
                if (turn == 0) thread.Create(context);
                if (opens) thread.Open(context, tick);
                if (together) thread.MarkTogether(context, 1 + static_cast<std::size_t>(events) % 2);
                for (int n = 0; n < events && !together; ++n) thread.Mark(context);
                thread.Pass(context);
                if (tick % 4 == 3) thread.CheckFinished();
            }
            if (closesHere) {
                for (std::size_t n = 0; n < turns.size(); ++n) thread.Await(static_cast<int>(n), turns[n]);
                thread.Close(0);
            }
            if (!stays) thread.Leave();
        });
    }
    scheduler.AddThread([&system, cycles = 1 + below(6)] { system.RunWorker(1, cycles, 1); });
    if (below(2) == 0) {
        scheduler.AddThread([&system, cycles = below(4)] {
            system.GiveUpWorker();
            system.RunWorker(2, cycles, 20);
        });
    }
    scheduler.AddThread([&system] {
        Queues::Sums before;
        for (int i = 0; i < 3; ++i) system.CheckCounts(before);
    });
}

class QueueModel : public testing::TestWithParam<std::tuple<bool, std::size_t>> {};

TEST_P(QueueModel, HoldsInRandomOrders) {
    const auto& [weak, mayFail] = GetParam();
    std::mt19937 random(20 * static_cast<unsigned>(mayFail) + (weak ? 1 : 0));
    std::unique_ptr<System> system;
    const auto begin = [&](Scheduler& scheduler) {
        system = std::make_unique<System>();
        system->heap.mayFail = mayFail;
        for (int i = 0; i < 4; ++i) system->contexts.emplace_back(i == 0 ? -1 : 0);
        BeginRandom(*system, scheduler, random);
    };
    const auto end = [&] {
        system->CheckAtEnd();
        system.reset();
    };
    Scheduler scheduler(weak);
    scheduler.Run({begin, end}, 10000, random());
    EXPECT_EQ(scheduler.Failure(), "") << "in run " << scheduler.Runs();
}

INSTANTIATE_TEST_SUITE_P(Values, QueueModel,
                         testing::Combine(testing::Bool(), testing::Values(std::size_t{0}, std::size_t{3})));

}  // namespace
}  // namespace Metrics::Testing::Model
