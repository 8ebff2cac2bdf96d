// One unit of work on several threads. A context belongs to the thread it is attached to; work that goes to
// another thread takes a ticket along, and becomes a child of the context that handed it over.
#include <exception>
#include <iostream>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "metrics/Context.h"
#include "metrics/ContextGuard.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Session.h"

using namespace Metrics;

namespace {

constexpr std::size_t kParts = 3;

long SumOfPart(ContextTicket ticket, std::size_t part) {
    Context context(std::move(ticket));  // this thread works for it until the end of the block
    context.AddAttribute("number", std::to_string(part));
    METRICS_SCOPE("add");
    long sum = 0;
    for (std::size_t i = part; i < 3000; i += kParts) sum += static_cast<long>(i);
    METRICS_VALUE("sum", sum);
    return sum;
}

void SumInParts() {
    METRICS_SCOPE("sum");
    std::vector<long> sums(kParts);
    std::vector<std::jthread> threads;
    for (std::size_t part = 0; part < kParts; ++part) {
        // In the output the part stands where it was handed over, whenever its thread gets round to it.
        threads.emplace_back([&sums, part, ticket = Context::Hand("part")]() mutable {
            sums[part] = SumOfPart(std::move(ticket), part);
        });
    }
    threads.clear();  // joins them
    METRICS_VALUE("total", std::accumulate(sums.begin(), sums.end(), 0L));
}

void Measure() {
    const Session session;
    MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::Xml);
    output.MuteVolatileData();
    Context job = Context::Root("job");
    output.WriteToStream(std::cout, job.GetContextId());
    SumInParts();

    // A thread that only lends a hand attaches the context itself, while its owner leaves it alone.
    std::jthread([&job] {
        const ContextGuard guard(job);
        METRICS_SCOPE("farewell");
    }).join();
}

}  // namespace

int main() {
    try {
        Measure();
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
