// A subscriber of one's own: it counts how often every scope was opened, and how deep scopes ever nested,
// while the program runs. No file is involved. (The library measures the job's own time in a scope called
// "time".)
#include <algorithm>
#include <cstdint>
#include <exception>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsSubscription.h"
#include "metrics/Session.h"

using namespace Metrics;

namespace {

/// What the subscriber knows. It is called on the manager's worker thread only, so it needs no lock while it
/// counts.
class ScopeCensus {
  public:
    void See(const std::vector<MetricsEvent>& batch) {
        for (const MetricsEvent& event : batch) {
            if (event.Type() == MetricsEventType::ScopeOpen) Opened(event);
            if (event.Type() == MetricsEventType::ScopeClose) --depth_[event.contextId.AsUInt64()];
        }
    }

    void Print() const {
        for (const auto& [name, count] : opened_) std::cout << name << ": " << count << '\n';
        std::cout << "deepest: " << deepest_ << '\n';
    }

  private:
    void Opened(const MetricsEvent& event) {
        ++opened_[event.param1.ToString(0)];
        deepest_ = std::max(deepest_, ++depth_[event.contextId.AsUInt64()]);
    }

    std::map<std::string, int> opened_;
    std::map<std::uint64_t, int> depth_;  // by context
    int deepest_ = 0;
};

int Fibonacci(int n) {
    METRICS_SCOPE("fibonacci");
    return n < 2 ? n : Fibonacci(n - 1) + Fibonacci(n - 2);
}

void Measure() {
    ScopeCensus census;
    const MetricsSubscription subscription(MetricsEventCategory::Events,
                                           [&census](const auto& batch) { census.See(batch); });
    {
        const Session session;  // at the end of this block it waits until everything has been delivered
        const Context context = Context::Root("job");
        Fibonacci(10);
    }
    census.Print();
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
