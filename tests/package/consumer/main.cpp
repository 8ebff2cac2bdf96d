#include <metrics/MetricsManager.h>
#include <metrics/MetricsValue.h>
#include <metrics/MetricsValueBuffer.h>
#include <metrics/Session.h>

#include <iostream>

// Uses values, an exception that crosses the library's border, and a whole session.
int main() {
    Metrics::MetricsValue value;
    try {
        Metrics::MetricsValueBuffer().Extract(value);
        return 1;
    } catch (const Metrics::MetricsBufferError& error) {
        std::cout << error.what() << '\n';
    }
    const Metrics::Session session;
    return Metrics::MetricsManager::GetInstance().GetNextContextId() > 0 ? 0 : 1;
}
