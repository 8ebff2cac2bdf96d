#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <sstream>

#include "metrics/MetricsValueBuffer.h"
#include "metrics/output/OutputState.h"
#include "tests/output/EventMaking.h"
#include "tests/support/FolderTest.h"

namespace Metrics::Testing {

using Mode = MetricsOutput::Mode;
using Format = MetricsOutput::Format;

inline bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// What a writer makes of events, without what it begins with.
template <class Writer, class... Arguments>
std::string Written(const std::vector<MetricsEvent>& events, Arguments... arguments) {
    std::ostringstream stream;
    Writer writer(stream, arguments...);
    for (const MetricsEvent& event : events) writer.Write(event);
    writer.End();
    return stream.str();
}

// What an output does with batches, without a manager that runs.
class Output : public detail::OutputState {
  public:
    Output(Mode mode, Format format) : OutputState(detail::Core::Current(), mode, format) {}
    ~Output() { CloseDown(); }

    void Put(const std::vector<MetricsEvent>& batch) { ProcessBatch(batch); }
    // What is written for a context from now on.
    std::ostringstream& Listen(std::uint64_t contextId) {
        std::ostringstream& stream = streams_.emplace_back();
        OpenStream(&stream, contextId);
        return stream;
    }
    // The same in batches of random sizes.
    void PutInPieces(const std::vector<MetricsEvent>& events, std::uint32_t seed) {
        std::mt19937 random(seed);
        for (auto at = events.begin(); at != events.end();) {
            const auto size = std::min(static_cast<std::ptrdiff_t>(1 + random() % 200), events.end() - at);
            ProcessBatch(std::vector<MetricsEvent>(at, at + size));
            at += size;
        }
    }

  private:
    std::deque<std::ostringstream> streams_;
};

inline std::vector<MetricsEvent> ReadEvents(MetricsValueBuffer& buffer) {
    std::vector<MetricsEvent> events(buffer.ReadHeader().eventCount);
    for (MetricsEvent& event : events) event.Read(buffer);
    return events;
}

inline Briefs Decode(const std::shared_ptr<MetricsValueBuffer>& buffer) {
    if (!buffer) return {"no buffer"};
    Briefs briefs;
    for (const MetricsEvent& event : ReadEvents(*buffer)) briefs.push_back(Brief(event));
    return briefs;
}

using OutputTest = FolderTest;

}  // namespace Metrics::Testing
