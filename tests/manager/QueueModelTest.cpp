// The queues and the cycle in every order of their threads' steps (small cases) and in random ones (larger).
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "tests/manager/model/QueueModel.h"

namespace Metrics::Testing::Model {
namespace {

constexpr std::uint64_t kMostRuns = 300'000;

struct Case {
    std::string name;
    int contexts;
    std::function<void(System&, Scheduler&)> begin;
    std::size_t mayFail = 0;
    bool isTiny = false;  // enough for every order together with every old value that a load may give
};

void AddProducer(System& system, Scheduler& scheduler, std::uint64_t name,
                 std::function<void(Producer&)> body) {
    scheduler.AddThread([&system, name, body = std::move(body)] {
        Producer producer(system, name);
        body(producer);
        producer.Leave();
    });
}

Scheduler::Program ProgramOf(const Case& tested) {
    auto system = std::make_shared<std::unique_ptr<System>>();
    return {[&tested, system](Scheduler& scheduler) {
                *system = std::make_unique<System>();
                (*system)->heap.mayFail = tested.mayFail;
                for (int i = 0; i < tested.contexts; ++i) (*system)->contexts.emplace_back(i == 0 ? -1 : 0);
                tested.begin(**system, scheduler);
            },
            [system] {
                (*system)->CheckAtEnd();
                system->reset();
            }};
}

// Small enough for every order. Producers that are made here, and what they mark here, come before all steps.
const Case kSmall[] = {
    {"AContextThatIsHandedOver", 1,
     [](System& system, Scheduler& scheduler) {
         AddProducer(system, scheduler, 1, [](Producer& thread) {
             thread.Create(0);
             thread.Mark(0);
             thread.Pass(0);
         });
         AddProducer(system, scheduler, 2, [](Producer& thread) {
             thread.Await(0, 1);
             thread.Mark(0);
         });
         scheduler.AddThread([&] { system.RunWorker(1, 1); });
     },
     0, true},
    {"AContextThatComesBack", 1,
     [](System& system, Scheduler& scheduler) {
         AddProducer(system, scheduler, 1, [](Producer& thread) {
             thread.Mark(0);
             thread.Pass(0);
             thread.Await(0, 2);
             thread.Mark(0);
         });
         AddProducer(system, scheduler, 2, [](Producer& thread) {
             thread.Await(0, 1);
             thread.Mark(0);
             thread.Pass(0);
         });
         scheduler.AddThread([&] { system.RunWorker(1, 2); });
     }},
    {"APoolsChildrenBeforeTheirParentsClose", 3,
     [](System& system, Scheduler& scheduler) {
         const auto closing = std::make_shared<Producer>(system, 2);
         closing->Mark(0);
         AddProducer(system, scheduler, 1, [](Producer& thread) {
             thread.Mark(1);
             thread.Pass(0);
         });
         scheduler.AddThread([closing] {
             closing->Mark(2);
             closing->Await(0, 1);
             closing->Close(0);
             closing->Leave();
         });
         scheduler.AddThread([&] { system.RunWorker(1, 1); });
     },
     0, true},
    {"AWorkerThatIsGivenUpBetweenBatches", 1,
     [](System& system, Scheduler& scheduler) {
         const auto first = std::make_shared<Producer>(system, 1);
         const auto second = std::make_shared<Producer>(system, 2);
         for (int i = 0; i < 3; ++i) first->Mark(0);
         second->Mark(0);
         first->Mark(0);
         scheduler.AddThread([=] {
             first->Mark(0);
             first->Leave();
             second->Leave();
         });
         scheduler.AddThread([&] { system.RunWorker(1, 1); });
         scheduler.AddThread([&] {
             system.GiveUpWorker();
             system.RunWorker(2, 1);
         });
     },
     0, true},
    {"AThreadThatEnds", 1,
     [](System& system, Scheduler& scheduler) {
         const auto first = std::make_shared<Producer>(system, 1);
         scheduler.AddThread([first] {
             first->Mark(0);
             first->Leave();
         });
         AddProducer(system, scheduler, 2, [](Producer&) {});
         scheduler.AddThread([&] { system.RunWorker(1, 3); });
     },
     0, true},
    {"BlocksThatGoRound", 1,
     [](System& system, Scheduler& scheduler) {
         const auto producer = std::make_shared<Producer>(system, 1);
         for (int i = 0; i < 14; ++i) producer->Mark(0);
         system.RunWorker(1, 1);
         scheduler.AddThread([producer] {
             for (int i = 0; i < 8; ++i) producer->Mark(0);
             producer->Leave();
         });
         scheduler.AddThread([&] { system.RunWorker(1, 2, 1); });
     }},
    {"ABlockThatIsBegunAgain", 1,
     [](System& system, Scheduler& scheduler) {
         AddProducer(system, scheduler, 1, [](Producer& thread) {
             for (int i = 0; i < 6; ++i) thread.Mark(0);
         });
         scheduler.AddThread([&] { system.RunWorker(1, 3); });
     }},
    {"CountsAtAnyMoment", 1,
     [](System& system, Scheduler& scheduler) {
         AddProducer(system, scheduler, 1, [](Producer& thread) {
             thread.Mark(0);
             thread.Mark(0);
         });
         scheduler.AddThread([&] { system.RunWorker(1, 2); });
         scheduler.AddThread([&] {
             Queues::Sums before;
             for (int i = 0; i < 2; ++i) system.CheckCounts(before);
         });
     }},
    {"WhatIsBelowTheBoundIsDelivered", 1,
     [](System& system, Scheduler& scheduler) {
         AddProducer(system, scheduler, 1, [](Producer& thread) {
             for (int i = 0; i < 3; ++i) {
                 thread.Mark(0);
                 thread.CheckFinished();
             }
         });
         scheduler.AddThread([&] { system.RunWorker(1, 3); });
     }},
    {"AllocationsThatFail", 1,
     [](System& system, Scheduler& scheduler) {
         const auto other = std::make_shared<Producer>(system, 2);
         AddProducer(system, scheduler, 1, [](Producer& thread) {
             for (int i = 0; i < 3; ++i) thread.Mark(0);
             thread.Pass(0);
             thread.Await(0, 2);
             thread.MarkTogether(0, 2);
             thread.Mark(0);
         });
         scheduler.AddThread([=] {
             other->Await(0, 1);
             for (int i = 0; i < 2; ++i) other->Mark(0);
             other->Pass(0);
             other->Leave();
         });
         scheduler.AddThread([&] { system.RunWorker(1, 1); });
     },
     2},
};

class SmallCases : public testing::TestWithParam<std::size_t> {};

TEST_P(SmallCases, HoldInEveryOrder) {
    const Case& tested = kSmall[GetParam()];
    Scheduler scheduler;
    const bool all = scheduler.RunAll(ProgramOf(tested), kMostRuns);
    EXPECT_EQ(scheduler.Failure(), "") << "in run " << scheduler.Runs();
    EXPECT_TRUE(all || !scheduler.Failure().empty()) << "more than " << kMostRuns << " orders";
    RecordProperty("orders", std::to_string(scheduler.Runs()));
}

// In every order, or, where these are too many, in random ones.
TEST_P(SmallCases, HoldWhenLoadsGiveOldValues) {
    const Case& tested = kSmall[GetParam()];
    Scheduler scheduler(true);
    bool all = true;
    if (tested.isTiny) {
        all = scheduler.RunAll(ProgramOf(tested), kMostRuns);
    } else {
        scheduler.RunRandom(ProgramOf(tested), 3000, GetParam());
    }
    EXPECT_EQ(scheduler.Failure(), "") << "in run " << scheduler.Runs();
    EXPECT_TRUE(all || !scheduler.Failure().empty()) << "more than " << kMostRuns << " orders";
    RecordProperty("orders", std::to_string(scheduler.Runs()));
}

INSTANTIATE_TEST_SUITE_P(QueueModel, SmallCases, testing::Range(std::size_t{0}, std::size(kSmall)),
                         [](const auto& tested) { return kSmall[tested.param].name; });

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
    for (int i = 4 + below(12), tick = 0; i > 0; --i, tick += below(2)) {
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
    scheduler.AddThread([&system, cycles = below(4)] {
        system.GiveUpWorker();
        system.RunWorker(2, cycles, 20);
    });
    scheduler.AddThread([&system] {
        Queues::Sums before;
        for (int i = 0; i < 3; ++i) system.CheckCounts(before);
    });
}

class RandomOrders : public testing::TestWithParam<std::tuple<bool, std::size_t>> {};

TEST_P(RandomOrders, Hold) {
    const auto& [weak, mayFail] = GetParam();
    std::mt19937 random(20 * static_cast<unsigned>(mayFail) + (weak ? 1 : 0));
    Case larger{.name = "", .contexts = 4, .begin = {}, .mayFail = mayFail};
    larger.begin = [&random](System& system, Scheduler& scheduler) {
        BeginRandom(system, scheduler, random);
    };
    Scheduler scheduler(weak);
    const Scheduler::Program program = ProgramOf(larger);
    scheduler.RunRandom(program, 4000, random());
    EXPECT_EQ(scheduler.Failure(), "") << "in run " << scheduler.Runs();
}

INSTANTIATE_TEST_SUITE_P(QueueModel, RandomOrders,
                         testing::Combine(testing::Bool(), testing::Values(std::size_t{0}, std::size_t{3})));

}  // namespace
}  // namespace Metrics::Testing::Model
