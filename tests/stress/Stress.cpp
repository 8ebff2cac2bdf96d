// Random calls of the manager, contexts, scopes and outputs from many threads at once:
//
//     metrics_stress [--seconds 10] [--threads 6] [--seed N]
//
// Rounds of three kinds follow one another. In the exact ones the manager is started and stopped while
// threads post numbered marks, and each mark must arrive exactly once, in its thread's order, at a subscriber
// and in an output. In the wild ones everything is called at once. In the last kind the manager is freed
// under threads that mark. A round that hangs ends the program. Exit code 0 when everything was right.
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>

#include "metrics/Context.h"
#include "metrics/ContextGuard.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
#include "metrics/MetricsSubscription.h"
#include "metrics/Session.h"
#include "tests/stress/Ledger.h"
#include "tests/support/Memory.h"

namespace Metrics::Testing {
namespace {

using Clock = std::chrono::steady_clock;
using Random = std::mt19937_64;

struct Options {
    double seconds = 10;
    unsigned threads = 6;
    std::uint64_t seed = static_cast<std::uint64_t>(std::random_device{}()) << 16 ^ std::random_device{}();
};

unsigned Pick(Random& random, unsigned below) {
    return static_cast<unsigned>(random() % below);
}

MetricsManager& Manager() {
    return MetricsManager::GetInstance();
}

/// Counts the marks in the text that is written to it. Lines arrive whole.
class MarkCounter : public std::streambuf {
  public:
    std::uint64_t Marks() const { return marks_; }

  private:
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        static const std::string mark = ",10,\"mark\",";
        const std::string_view block(text, static_cast<std::size_t>(size));
        for (std::size_t at = block.find(mark); at != block.npos; at = block.find(mark, at + 1)) ++marks_;
        return size;
    }
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }

    std::uint64_t marks_ = 0;
};

/// Threads that do something again and again, each with its own random numbers, until the object goes.
class Crew {
  public:
    Crew(unsigned size, Random& random, std::function<void(unsigned, Random&)> work) {
        for (unsigned i = 0; i < size; ++i) {
            threads_.emplace_back([this, i, work, own = Random(random())]() mutable {
                while (!stop_) work(i, own);
            });
        }
    }
    ~Crew() {
        stop_ = true;
        for (std::thread& thread : threads_) thread.join();
    }

  private:
    std::atomic<bool> stop_{false};
    std::vector<std::thread> threads_;
};

// --- What is called
// ----------------------------------------------------------------------------------------------

void MarkAtRandom(Random& random) {
    switch (Pick(random, 6)) {
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
        case 3: {
            METRICS_SCOPE("without a context");
            METRICS_VALUE("value", 1);
            break;
        }
        default: {
            Context context = Context::Root("short");
            const ContextGuard guard(context);
            METRICS_SCOPE_NAMED(std::to_string(Pick(random, 1000)));
        }
    }
}

void UseAnOutput(Random& random) {
    using Mode = MetricsOutput::Mode;
    std::ostringstream text;
    const auto format = static_cast<MetricsOutput::Format>(Pick(random, 3));
    MetricsOutput output(Mode::Borrowed, format);
    output.WriteToStream(text, 0);
    MarkAtRandom(random);
    if (Pick(random, 2) == 0) output.Finish(0);
    if (Pick(random, 2) == 0) output.Flush();
    if (Pick(random, 2) == 0) output.Close();
}

void CallAtRandom(Random& random) {
    switch (Pick(random, 16)) {
        case 0: Manager().Start(); break;
        case 1: Manager().Shutdown(); break;
        case 2: Manager().SetState(MetricsManager::Collecting, Pick(random, 4) != 0); break;
        case 3: Manager().Unsubscribe(static_cast<int>(Pick(random, 5))); break;
        case 4: {
            const int id = Manager().Subscribe(MetricsEventCategory::Events, [](const auto&) {});
            Manager().Unsubscribe(id);
            break;
        }
        case 5: {
            const auto alive = std::make_shared<std::atomic<bool>>(true);
            auto subscription =
                std::make_unique<MetricsSubscription>(MetricsEventCategory::Events, [alive](const auto&) {
                    if (!*alive) std::abort();  // called after its owner was gone
                    Manager().Unsubscribe(
                        Manager().Subscribe(MetricsEventCategory::Events, [](const auto&) {}));
                });
            std::this_thread::sleep_for(std::chrono::microseconds(Pick(random, 500)));
            subscription.reset();
            *alive = false;
            break;
        }
        case 6: UseAnOutput(random); break;
        case 7: Manager().WaitUntil([] { return false; }, static_cast<int>(Pick(random, 3))); break;
        case 8: Manager().SetBits(random(), Pick(random, 2) == 0); break;
        case 9: Manager().SetBitsAbsolute(0xFFF, true); break;
        case 10: Manager().SetComponentId(1ULL << Pick(random, 8)); break;
        case 11: Manager().SetLogDelegate([](const std::string&) {}); break;
        case 12: Manager().Subscribe(MetricsEventCategory::Events, [](const auto&) { throw 1; }); break;
        default: MarkAtRandom(random);
    }
}

// --- The rounds
// --------------------------------------------------------------------------------------------------

struct Run {
    Options options;
    Random random;
    Ledger ledger;
    std::uint64_t restarts = 0;
    std::uint64_t givenUp = 0;
    std::uint64_t rounds = 0;
    bool good = true;

    explicit Run(const Options& given) : options(given), random(given.seed), ledger(given.threads) {}

    void Expect(bool condition, const char* what) {
        if (condition) return;
        std::printf("WRONG in round %llu: %s\n", static_cast<unsigned long long>(rounds), what);
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
    MarkCounter counter;
    std::ostream stream(&counter);
    const std::uint64_t before = run.ledger.Received();
    MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::RawUnordered);
    output.WriteToStream(stream, 0);
    Manager().Subscribe(MetricsEventCategory::Events,
                        [&run](const auto& batch) { run.ledger.Receive(batch); });
    Manager().Start();
    run.ledger.Started();
    for (unsigned i = Pick(run.random, 4); i > 0; --i) {
        std::this_thread::sleep_for(std::chrono::microseconds(Pick(run.random, 2000)));
        if (i % 2 == 0) output.Finish(0);
    }
    run.ledger.BeforeShutdown();
    const auto start = Clock::now();
    Manager().Shutdown();
    const bool givenUp = Clock::now() - start >= std::chrono::seconds(1);
    output.Close();
    if (givenUp) return GiveUp(run);
    run.Expect(counter.Marks() == run.ledger.Received() - before,
               "output and subscriber saw different marks");
    ++run.restarts;
}

void ExactRound(Run& run) {
    Manager().SetState(MetricsManager::Collecting, true);
    Manager().SetBitsAbsolute(0xFFF, false);
    {
        const Crew crew(run.options.threads, run.random, [&run](unsigned index, Random& random) {
            Context context = Context::Root("exact");
            Scope scope("exact");
            for (unsigned i = Pick(random, 50); i > 0; --i) run.ledger.Post(index, scope);
            std::this_thread::sleep_for(std::chrono::microseconds(Testing::kThreadSanitized ? 2000 : 50));
        });
        for (int i = 0; i < 20; ++i) RunOnce(run);
    }
    RunOnce(run);  // what the last one left in the queue
    const MetricsStatistics at = Manager().GetStatistics();
    run.Expect(at.queued == 0, "something is left in the queue");
    run.Expect(at.posted == at.delivered + at.queued, "the statistics don't add up");
}

void WildRound(Run& run) {
    {
        const Crew crew(run.options.threads, run.random,
                        [](unsigned, Random& random) { CallAtRandom(random); });
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    Manager().Shutdown();
    run.Expect(
        Manager().WaitUntil(
            [] { return (Manager().GetState() & (MetricsManager::Running | MetricsManager::Stopping)) == 0; },
            5000),
        "the worker didn't leave");
    // Nothing of it may be seen in the exact round that follows.
    MetricsManager::FreeInstance();
}

void FreeingRound(Run& run) {
    const Crew crew(run.options.threads, run.random, [](unsigned, Random& random) { MarkAtRandom(random); });
    for (int i = 0; i < 50; ++i) {
        Manager().Start();
        Manager().SetState(MetricsManager::Collecting, true);
        std::this_thread::sleep_for(std::chrono::microseconds(Pick(run.random, 1000)));
        MetricsManager::FreeInstance();
    }
}

int Stress(const Options& options) {
    std::printf("seed %llu, %u threads, %.0f seconds\n", static_cast<unsigned long long>(options.seed),
                options.threads, options.seconds);
    std::fflush(stdout);
    Run run(options);
    std::atomic<std::uint64_t> finished{0};
    std::atomic<bool> over{false};
    std::thread watchdog([&] {
        auto since = Clock::now();
        for (std::uint64_t seen = 0; !over; std::this_thread::sleep_for(std::chrono::milliseconds(100))) {
            if (std::exchange(seen, finished.load()) != finished) since = Clock::now();
            if (Clock::now() - since < std::chrono::seconds(60)) continue;
            std::printf("HANGS in round %llu\n", static_cast<unsigned long long>(finished.load()));
            std::fflush(stdout);
            std::abort();
        }
    });
    const auto end = Clock::now() + std::chrono::duration<double>(options.seconds);
    do {
        ExactRound(run);
        WildRound(run);
        FreeingRound(run);
        MetricsManager::FreeInstance();
        ++run.rounds;
        ++finished;
    } while (Clock::now() < end && run.good);
    over = true;
    watchdog.join();
    std::printf("%llu rounds, %llu restarts, %llu of them given up\n",
                static_cast<unsigned long long>(run.rounds), static_cast<unsigned long long>(run.restarts),
                static_cast<unsigned long long>(run.givenUp));
    const bool balances = run.ledger.Balances();
    return balances && run.good ? EXIT_SUCCESS : EXIT_FAILURE;
}

Options Parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--seconds") options.seconds = std::atof(argv[i + 1]);
        if (name == "--threads")
            options.threads = static_cast<unsigned>(std::clamp(std::atoi(argv[i + 1]), 1, 64));
        if (name == "--seed") options.seed = std::strtoull(argv[i + 1], nullptr, 10);
    }
    return options;
}

}  // namespace
}  // namespace Metrics::Testing

int main(int argc, char** argv) {
    return Metrics::Testing::Stress(Metrics::Testing::Parse(argc, argv));
}
