// What the process holds while a great many events go through it:
//
//     metrics_memory [--events 3000000] [--threads 1] [--ahead 200000] [--slow 0] [--limit 0]
//
// Threads post events to an output that writes lines to nowhere. They wait while more than `ahead` events are
// queued: 0 lets them run away from an output that doesn't keep up. `slow` makes it slower, by that many
// microseconds for each thousand events. Resident memory and the length of the queue are printed as it goes;
// above `limit` MiB, or when not every event arrived, the exit code is 1.
//
//     metrics_memory --requests 1000000 [--threads 1] [--csv 0] [--limit 0]
//
// Threads make short root contexts beside one that never ends, for an output in Completed. All of them must
// be written before the output closes, and the one that stays open when it does.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>
#include <vector>

#include "metrics/Context.h"
#include "metrics/MetricsManager.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Scope.h"
#include "metrics/Session.h"
#include "tests/stress/Arguments.h"
#include "tests/stress/CountingBuffer.h"
#include "tests/support/Memory.h"

namespace Metrics::Testing {
namespace {

MetricsManager& Manager() {
    return MetricsManager::GetInstance();
}

// Scopes, so that each event is the half of one; a look at the queue now and then.
void Post(std::uint64_t scopes, std::uint64_t ahead) {
    Context context = Context::Root("memory");
    for (std::uint64_t i = 0; i < scopes; ++i) {
        Scope scope(MetricsValue::Ref("scope"));
        if (i % 1024 != 0 || ahead == 0) continue;
        while (Manager().GetStatistics().queued > ahead) std::this_thread::yield();
    }
}

int Measure(const Arguments& arguments) {
    const std::uint64_t events = arguments.Get("--events", 3'000'000);
    const std::uint64_t threads = std::clamp<std::uint64_t>(arguments.Get("--threads", 1), 1, 64);
    const std::uint64_t ahead = arguments.Get("--ahead", 200'000);
    const std::uint64_t slow = arguments.Get("--slow", 0);
    const auto limit = static_cast<std::int64_t>(kSanitized ? 0 : arguments.Get("--limit", 0));
    CountingBuffer nowhere("\n");
    std::ostream stream(&nowhere);
    std::int64_t highest = 0;
    {
        const Session session;
        MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::RawUnordered);
        output.WriteToStream(stream, 0);
        Manager().Subscribe(MetricsEventCategory::Events, [&](const auto& batch) {
            std::this_thread::sleep_for(std::chrono::microseconds(batch.size() * slow / 1000));
        });
        std::atomic<std::uint64_t> busy{threads};
        std::vector<std::jthread> posters;
        for (std::uint64_t i = 0; i < threads; ++i) {
            posters.emplace_back([&] {
                Post(events / threads / 2, ahead);
                --busy;
            });
        }
        const auto look = [&](bool tell) {
            const std::int64_t resident = ResidentKiB() / 1024;
            highest = std::max(highest, resident);
            if (!tell) return;
            const MetricsStatistics at = Manager().GetStatistics();
            std::cout << at.delivered << " delivered, " << at.queued << " queued, " << at.largestBatch
                      << " in the largest batch, " << resident << " MiB resident" << std::endl;
        };
        for (int tick = 0; busy > 0; ++tick) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            look(tick % 50 == 0);
        }
        output.Close();
        look(true);
    }
    std::cout << nowhere.Count() << " lines, at most " << highest << " MiB resident\n";
    return nowhere.Count() > events && (limit == 0 || highest <= limit) ? EXIT_SUCCESS : EXIT_FAILURE;
}

void MakeRequests(std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
        Context request = Context::Root("request");
        request.AddAttribute("path", "/a/b");
        {
            Scope scope(MetricsValue::Ref("work"));
            scope.Emit("bytes", i);
        }
        request.Close();
        while (i % 256 == 0 && Manager().GetStatistics().queued > 200'000) std::this_thread::yield();
    }
}

int MeasureRequests(const Arguments& arguments) {
    const std::uint64_t requests = arguments.Get("--requests", 0);
    const std::uint64_t threads = std::clamp<std::uint64_t>(arguments.Get("--threads", 1), 1, 64);
    const bool csv = arguments.Get("--csv", 0) != 0;
    const auto limit = static_cast<std::int64_t>(kSanitized ? 0 : arguments.Get("--limit", 0));
    CountingBuffer works(csv ? "work\n" : "</work>");
    const Session session;
    MetricsOutput output(MetricsOutput::Mode::Completed,
                         csv ? MetricsOutput::Format::CsvComma : MetricsOutput::Format::Xml);
    output.SetRowDefinition("work.bytes:i;nodename(work)");
    output.WriteToStream(*new std::ostream(&works), 0);
    std::int64_t highest = 0;
    Context hangs = Context::Root("hangs");
    Scope scope(MetricsValue::Ref("work"));
    scope.Emit("bytes", 1);
    std::atomic<std::uint64_t> busy{threads};
    std::vector<std::jthread> makers;
    for (std::uint64_t i = 0; i < threads; ++i) {
        makers.emplace_back([&] {
            MakeRequests(requests / threads);
            --busy;
        });
    }
    while (busy > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        highest = std::max(highest, ResidentKiB() / 1024);
        scope.Emit("still", "here");
    }
    makers.clear();
    output.Flush();
    const std::uint64_t ended = works.Count();
    scope.Close();
    output.Close();
    std::cout << ended << " requests written beside one that was open, then " << works.Count() - ended
              << "; at most " << highest << " MiB resident\n";
    const std::uint64_t made = requests / threads * threads;
    // In a table the row of what is open may have come with its value.
    const bool all = works.Count() == made + 1 && ended >= made;
    return all && (limit == 0 || highest <= limit) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace Metrics::Testing

int main(int argc, char** argv) {
    const Metrics::Testing::Arguments arguments(argc, argv);
    return arguments.Get("--requests", 0) != 0 ? Metrics::Testing::MeasureRequests(arguments)
                                               : Metrics::Testing::Measure(arguments);
}
