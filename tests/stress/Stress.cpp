// Random calls of the manager, contexts, scopes and outputs from many threads at once:
//
//     metrics_stress [--seconds 10] [--threads 6] [--seed N]
//
// Rounds of three kinds follow one another. In the exact ones the manager is started and stopped while
// threads post numbered marks, and each mark must arrive exactly once, in its thread's order, at a subscriber
// and in an output. In the wild ones everything is called at once. In the last kind the manager is freed
// under threads that mark. A round that hangs ends the program. Exit code 0 when everything was right.
#include <chrono>
#include <future>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <thread>

#include "metrics/Context.h"
#include "metrics/ContextGuard.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
#include "metrics/MetricsSubscription.h"
#include "tests/lifetime/Threads.h"
#include "tests/stress/Arguments.h"
#include "tests/stress/CountingBuffer.h"
#include "tests/stress/Ledger.h"
#include "tests/support/Memory.h"

namespace Metrics::Testing {
namespace {

using Clock = std::chrono::steady_clock;
using Random = std::mt19937_64;

constexpr auto kEvents = MetricsEventCategory::Events;

unsigned Pick(Random& random, unsigned below) {
    return static_cast<unsigned>(random() % below);
}

MetricsManager& Manager() {
    return MetricsManager::GetInstance();
}

void MarkAtRandom(Random& random) {
    METRICS_SCOPE("without a context");
    switch (Pick(random, 4)) {
        case 0: {
            Context context = Context::Root("root");
            context.AddAttribute("key", "value");
            METRICS_SCOPE("scope", Pick(random, 2) == 0 ? Scope::kElapsedTime : 0x40000);
            METRICS_VALUE("value", 1);
            Context child = Context::Child("child");
            context.Close();
            METRICS_SCOPE("on the child");
            break;
        }
        case 1: {
            Context parent = Context::Root("parent");
            auto scope = std::make_unique<Scope>("crosses");
            ContextTicket ticket = Context::Hand("handed");
            std::thread([&scope, ticket = std::move(ticket), use = Pick(random, 2)]() mutable {
                if (use == 0) Context chunk(std::move(ticket));
                scope.reset();
                METRICS_SCOPE("elsewhere");
            }).join();
            METRICS_VALUE("after", 1);
            break;
        }
        case 2: {
            auto context = std::make_unique<Context>(0, Context::Create(true));
            context->SetThreadId(0);
            Scope scope("outlives its context");
            std::thread([&] { context.reset(); }).join();
            break;
        }
        default: {
            Context context = Context::Root("short");
            const ContextGuard guard(context);
            METRICS_SCOPE_NAMED(std::to_string(Pick(random, 1000)));
        }
    }
}

constexpr const char* kOddNames[] = {"GET /x?id=7", "a='b", "!--x",  "?x",   "",
                                     "vector<int>", "part", "xmlns", "\xFF", "7"};

// Scopes and contexts that close in any order, under odd names.
void CloseInAnyOrder(Random& random) {
    const char* const name = kOddNames[Pick(random, std::size(kOddNames))];
    Context context = Context::Root(name);
    context.AddAttribute(name, name);
    auto outer = std::make_unique<Scope>(name);
    outer->EmitAttribute(name, name);
    Scope inner("inner");
    Context child = Context::Child(name);
    Scope inChild(name);
    inChild.Emit(name, name);
    if (Pick(random, 2) == 0) child.Close();
    if (Pick(random, 2) == 0) outer.reset();
    if (Pick(random, 2) == 0) context.Close();
    METRICS_VALUE("after", 1);
}

// All roots to one target, which for some of them has to be left to others before they end.
void UseASharedOutput(Random& random) {
    MetricsOutput output(Pick(random, 3) == 0 ? MetricsOutput::Mode::Single : MetricsOutput::Mode::Completed,
                         static_cast<MetricsOutput::Format>(1 + Pick(random, 5)));
    output.SetRowDefinition("path(value);value");
    output.SetHeldLimit(Pick(random, 3) * 10000);
    if (Pick(random, 8) != 0) output.WriteToStream(*new std::ostringstream, Pick(random, 2));
    auto hangs = std::make_unique<Context>(0, Context::Create(true));
    Scope scope("hangs");
    for (unsigned i = Pick(random, 20); i > 0; --i) {
        MarkAtRandom(random);
        CloseInAnyOrder(random);
        scope.Emit("value", std::to_string(random()));
    }
    if (Pick(random, 4) == 0) output.Finish(0);
    if (Pick(random, 2) == 0) hangs.reset();
    if (Pick(random, 2) == 0) output.Close();
}

void UseAnOutput(Random& random) {
    std::ostringstream text;
    MetricsOutput output(MetricsOutput::Mode::Borrowed, static_cast<MetricsOutput::Format>(Pick(random, 3)));
    output.WriteToStream(text, 0);
    MarkAtRandom(random);
    if (Pick(random, 2) == 0) output.Finish(0);
    if (Pick(random, 2) == 0) output.Flush();
    if (Pick(random, 2) == 0) output.Close();
}

void CallAtRandom(Random& random) {
    switch (Pick(random, 18)) {
        case 0: Manager().Start(); break;
        case 1: Manager().Shutdown(); break;
        case 2: Manager().SetState(MetricsManager::Collecting, Pick(random, 4) != 0); break;
        case 3: Manager().Unsubscribe(static_cast<int>(Pick(random, 5))); break;
        case 4: Manager().Unsubscribe(Manager().Subscribe(kEvents, [](const auto&) {})); break;
        case 5: {
            const auto alive = std::make_shared<std::atomic<bool>>(true);
            {
                const MetricsSubscription subscription(kEvents, [alive](const auto&) {
                    if (!*alive) std::abort();  // called after its owner was gone
                    Manager().Unsubscribe(Manager().Subscribe(kEvents, [](const auto&) {}));
                });
                std::this_thread::sleep_for(std::chrono::microseconds(Pick(random, 500)));
            }
            *alive = false;
            break;
        }
        case 6: UseAnOutput(random); break;
        case 13: UseASharedOutput(random); break;
        case 14: CloseInAnyOrder(random); break;
        case 7: Manager().WaitUntil([] { return false; }, static_cast<int>(Pick(random, 3))); break;
        case 8: Manager().SetBits(random(), Pick(random, 2) == 0); break;
        case 9: Manager().SetBitsAbsolute(0xFFF, true); break;
        case 10: Manager().SetComponentId(1ULL << Pick(random, 8)); break;
        case 11: Manager().SetLogDelegate([](const std::string&) {}); break;
        case 12: Manager().Subscribe(kEvents, [](const auto&) { throw 1; }); break;
        default: MarkAtRandom(random);
    }
}

struct Run {
    Random random;            // of the thread that makes the rounds
    std::vector<Random> own;  // of those that it starts
    Ledger ledger{own.size()};
    unsigned restarts = 0;
    unsigned givenUp = 0;
    unsigned rounds = 0;
    bool good = true;

    Run(std::uint64_t seed, std::size_t threads) : random(seed), own(threads) {
        for (Random& each : own) each.seed(random());
    }

    std::vector<std::jthread> Start(void (*work)(Random&)) {
        return Repeat(static_cast<unsigned>(own.size()), [this, work](unsigned i) { work(own[i]); });
    }
    void Sleep(unsigned longest) {
        std::this_thread::sleep_for(std::chrono::microseconds(Pick(random, longest)));
    }
    void Expect(bool condition, const char* what) {
        if (condition) return;
        std::cout << "WRONG in round " << rounds << ": " << what << '\n';
        good = false;
    }
};

// The machine was so busy that a whole second didn't do for the last batch. What it held is lost to those who
// were subscribed, as described, and nothing can be said of this round.
void GiveUp(Run& run) {
    ++run.givenUp;
    Manager().WaitUntil([] { return (Manager().GetState() & MetricsManager::Stopping) == 0; }, 30000);
    run.ledger.Forgive();
}

// One run of the manager, under threads that post all the time.
void RunOnce(Run& run) {
    CountingBuffer counter(",10,\"mark\",");
    std::ostream stream(&counter);
    const std::uint64_t before = run.ledger.Received();
    MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::RawUnordered);
    output.WriteToStream(stream, 0);
    Manager().Subscribe(kEvents, [&run](const auto& batch) { run.ledger.Receive(batch); });
    Manager().Start();
    run.ledger.Started();
    for (unsigned i = Pick(run.random, 4); i > 0; --i) {
        run.Sleep(2000);
        if (i % 2 == 0) output.Finish(0);
    }
    run.ledger.BeforeShutdown();
    const auto start = Clock::now();
    Manager().Shutdown();
    const bool givenUp = Clock::now() - start >= std::chrono::seconds(1);
    output.Close();
    if (givenUp) return GiveUp(run);
    run.Expect(counter.Count() == run.ledger.Received() - before,
               "output and subscriber saw different marks");
    ++run.restarts;
}

void ExactRound(Run& run) {
    Manager().SetState(MetricsManager::Collecting, true);
    Manager().SetBitsAbsolute(0xFFF, false);
    {
        const auto posters = Repeat(static_cast<unsigned>(run.own.size()), [&run](unsigned index) {
            Context context = Context::Root("exact");
            Scope scope("exact");
            for (unsigned i = Pick(run.own[index], 50); i > 0; --i) run.ledger.Post(index, scope);
            std::this_thread::sleep_for(std::chrono::microseconds(kThreadSanitized ? 2000 : 50));
        });
        for (int i = 0; i < 20; ++i) RunOnce(run);
    }
    RunOnce(run);  // what the last one left in the queue
    run.Expect(Manager().GetStatistics().queued == 0, "something is left in the queue");
}

void WildRound(Run& run) {
    {
        const auto callers = run.Start(CallAtRandom);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    Manager().Shutdown();
    constexpr auto kWorker = MetricsManager::Running | MetricsManager::Stopping;
    run.Expect(Manager().WaitUntil([] { return (Manager().GetState() & kWorker) == 0; }, 5000),
               "the worker didn't leave");
    // Nothing of it may be seen in the exact round that follows.
    MetricsManager::FreeInstance();
}

void FreeingRound(Run& run) {
    const auto marking = run.Start(MarkAtRandom);
    for (int i = 0; i < 50; ++i) {
        Manager().Start();
        Manager().SetState(MetricsManager::Collecting, true);
        run.Sleep(1000);
        MetricsManager::FreeInstance();
    }
}

void Round(Run& run) {
    ExactRound(run);
    WildRound(run);
    FreeingRound(run);
    MetricsManager::FreeInstance();
    ++run.rounds;
}

int Stress(const Arguments& arguments) {
    const std::uint64_t seed = arguments.Get("--seed", std::random_device{}());
    const auto threads = std::clamp<std::uint64_t>(arguments.Get("--threads", 6), 1, 64);
    const auto end = Clock::now() + std::chrono::seconds(arguments.Get("--seconds", 10));
    std::cout << "seed " << seed << ", " << threads << " threads" << std::endl;
    Run run(seed, threads);
    do {
        const auto round = std::async(std::launch::async, Round, std::ref(run));
        if (round.wait_for(std::chrono::seconds(60)) == std::future_status::ready) continue;
        std::cout << "HANGS in round " << run.rounds << std::endl;
        std::abort();
    } while (Clock::now() < end && run.good);
    std::cout << run.rounds << " rounds, " << run.restarts << " restarts, " << run.givenUp
              << " of them given up\n";
    const bool balances = run.ledger.Balances();
    return balances && run.good ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace Metrics::Testing

int main(int argc, char** argv) {
    return Metrics::Testing::Stress({argc, argv});
}
