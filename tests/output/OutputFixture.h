#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <sstream>

#include "metrics/MetricsValueBuffer.h"
#include "metrics/output/OutputState.h"
#include "tests/support/FolderTest.h"
#include "tests/support/Recorder.h"

namespace Metrics::Testing {

using Mode = MetricsOutput::Mode;
using Format = MetricsOutput::Format;

// Noon of 2013-04-08.
inline constexpr std::uint64_t kNoon = 2456390ULL * 864000000ULL + 432000000ULL;

inline MetricsEvent Make(MetricsEventType type, std::uint64_t context, MetricsValue param1 = 0,
                         MetricsValue param2 = 0) {
    return MetricsEvent(Opaque64(MetricsEvent::PackHeader(type, 7, 0)), context, MetricsDateTime(kNoon),
                        std::move(param1), std::move(param2));
}

inline MetricsEvent Create(std::uint64_t parent, std::uint64_t id) {
    return Make(MetricsEventType::ContextCreate, parent, parent, id);
}
// A root that is created where another context is current.
inline MetricsEvent CreateRootIn(std::uint64_t current, std::uint64_t id) {
    return Make(MetricsEventType::ContextCreate, current, 0, id);
}
inline MetricsEvent Construct(std::uint64_t parent, std::uint64_t id) {
    return Make(MetricsEventType::ContextConstruct, id, parent, id);
}
inline MetricsEvent Close(std::uint64_t id) {
    return Make(MetricsEventType::ContextClose, id);
}
inline MetricsEvent OpenScope(std::uint64_t id, const char* name) {
    return Make(MetricsEventType::ScopeOpen, id, MetricsValue::Ref(name));
}
inline MetricsEvent CloseScope(std::uint64_t id, const char* name) {
    return Make(MetricsEventType::ScopeClose, id, MetricsValue::Ref(name));
}
inline MetricsEvent Value(std::uint64_t id, const char* name, MetricsValue value) {
    return Make(MetricsEventType::ScopeValue, id, MetricsValue::Ref(name), std::move(value));
}
inline MetricsEvent Attribute(std::uint64_t id, const char* name, MetricsValue value) {
    return Make(MetricsEventType::NameValue, id, MetricsValue::Ref(name), std::move(value));
}

// "context:type" and the parameters, to compare streams of events by.
using Briefs = std::vector<std::string>;
inline std::string Brief(const MetricsEvent& event) {
    return std::to_string(event.contextId.AsUInt64()) + ":" + std::to_string(static_cast<int>(event.Type())) +
           ":" + event.param1.ToString(0) + ":" + event.param2.ToString(0);
}

inline bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

inline std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; ++at) ++count;
    return count;
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
    Output(Mode mode, Format format, const std::string& definition = "")
        : OutputState(detail::Core::Current(), mode, format), mode_(mode) {
        if (!definition.empty()) SetRowDefinition(definition);
    }
    ~Output() { CloseDown(); }

    void Put(const std::vector<MetricsEvent>& batch) { ProcessBatch(batch); }
    // What is written for a context from now on.
    const std::stringbuf& Listen(std::uint64_t contextId = 0) {
        std::stringbuf& text = texts_.emplace_back();
        OpenStream(mode_ == Mode::Borrowed ? &streams_.emplace_back(&text) : new std::ostream(&text),
                   contextId);
        return text;
    }
    // Batches of random sizes.
    void PutInPieces(const std::vector<MetricsEvent>& events, std::uint32_t seed) {
        std::mt19937 random(seed);
        for (auto at = events.begin(); at != events.end();) {
            const auto size = std::min(static_cast<std::ptrdiff_t>(1 + random() % 200), events.end() - at);
            ProcessBatch(std::vector<MetricsEvent>(at, at + size));
            at += size;
        }
    }

  private:
    const Mode mode_;
    std::deque<std::stringbuf> texts_;
    std::deque<std::ostream> streams_;  // borrowed ones
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

// What an output makes of a root.
inline std::string WrittenBy(Mode mode, Format format, const std::string& definition,
                             const std::vector<MetricsEvent>& events, std::uint64_t root = 1) {
    Output output(mode, format, definition);
    const std::stringbuf& text = output.Listen(root);
    output.PutInPieces(events, 7);
    output.CloseDown();
    EXPECT_EQ(output.Errors(), Briefs());
    return text.str();
}

// What an output says in the log.
inline Lines InLog(const Lines& errors) {
    Lines lines;
    for (const std::string& error : errors) lines.push_back("MX: MetricsOutput: " + error);
    return lines;
}

using OutputTest = FolderTest;

}  // namespace Metrics::Testing
