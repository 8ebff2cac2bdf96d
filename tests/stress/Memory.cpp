// What the process holds while a great many events go through it:
//
//     metrics_memory [--events 3000000] [--threads 1] [--ahead 200000] [--slow 0] [--limit 0]
//
// Threads post events to an output that writes lines to nowhere. They wait while more than `ahead` events are
// queued: 0 lets them run away from an output that doesn't keep up. `slow` makes it slower, by that many
// microseconds for each thousand events. Resident memory and the length of the queue are printed as it goes;
// above `limit` MiB, or when not every event arrived, the exit code is 1.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

#include "metrics/Context.h"
#include "metrics/MetricsManager.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Scope.h"
#include "metrics/Session.h"
#include "tests/support/Memory.h"

namespace Metrics::Testing {
namespace {

struct Options {
    std::uint64_t events = 3'000'000;
    std::uint64_t threads = 1;
    std::uint64_t ahead = 200'000;
    std::uint64_t slow = 0;
    std::uint64_t limit = 0;
};

class Nowhere : public std::streambuf {
  public:
    std::uint64_t Lines() const { return lines_; }

  private:
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        lines_ += static_cast<std::uint64_t>(std::count(text, text + size, '\n'));
        return size;
    }
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }

    std::uint64_t lines_ = 0;
};

MetricsManager& Manager() {
    return MetricsManager::GetInstance();
}

// Scopes, so that each event is the half of one; a value now and then.
void Post(const Options& options, std::uint64_t scopes) {
    Context context = Context::Root("memory");
    for (std::uint64_t i = 0; i < scopes; ++i) {
        Scope scope(MetricsValue::Ref("scope"));
        if (i % 1024 != 0 || options.ahead == 0) continue;
        while (Manager().GetStatistics().queued > options.ahead) std::this_thread::yield();
    }
}

std::int64_t Report(std::int64_t highest) {
    const MetricsStatistics at = Manager().GetStatistics();
    const std::int64_t resident = ResidentKiB() / 1024;
    std::printf("%12llu delivered %12llu queued %8llu in the largest batch %6lld MiB resident\n",
                static_cast<unsigned long long>(at.delivered), static_cast<unsigned long long>(at.queued),
                static_cast<unsigned long long>(at.largestBatch), static_cast<long long>(resident));
    std::fflush(stdout);
    return std::max(highest, resident);
}

int Measure(const Options& options) {
    Nowhere nowhere;
    std::ostream stream(&nowhere);
    std::int64_t highest = 0;
    const auto began = std::chrono::steady_clock::now();
    {
        const Session session;
        MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::RawUnordered);
        output.WriteToStream(stream, 0);
        Manager().Subscribe(MetricsEventCategory::Events, [&](const auto& batch) {
            std::this_thread::sleep_for(std::chrono::microseconds(batch.size() * options.slow / 1000));
        });
        std::atomic<std::uint64_t> busy{options.threads};
        std::vector<std::thread> threads;
        for (std::uint64_t i = 0; i < options.threads; ++i) {
            threads.emplace_back([&] {
                Post(options, options.events / options.threads / 2);
                --busy;
            });
        }
        for (int tick = 0; busy > 0; ++tick) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            highest = tick % 50 == 0 ? Report(highest) : std::max(highest, ResidentKiB() / 1024);
        }
        for (std::thread& thread : threads) thread.join();
        output.Close();
        highest = Report(highest);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    std::printf("%llu lines in %.1f s, at most %lld MiB resident\n",
                static_cast<unsigned long long>(nowhere.Lines()), seconds, static_cast<long long>(highest));
    const bool small = options.limit == 0 || highest <= static_cast<std::int64_t>(options.limit);
    return nowhere.Lines() > options.events && small ? EXIT_SUCCESS : EXIT_FAILURE;
}

Options Parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const std::uint64_t value = std::strtoull(argv[i + 1], nullptr, 10);
        if (name == "--events") options.events = value;
        if (name == "--threads") options.threads = std::clamp<std::uint64_t>(value, 1, 64);
        if (name == "--ahead") options.ahead = value;
        if (name == "--slow") options.slow = value;
        if (name == "--limit") options.limit = kSanitized ? 0 : value;
    }
    return options;
}

}  // namespace
}  // namespace Metrics::Testing

int main(int argc, char** argv) {
    return Metrics::Testing::Measure(Metrics::Testing::Parse(argc, argv));
}
