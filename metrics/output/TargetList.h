#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "metrics/MetricsEvent.h"
#include "metrics/output/IWriter.h"

namespace Metrics::detail {

struct Audience;
class OutputFileStream;

// One destination.
struct OutputTarget {
    OutputFileStream* file = nullptr;     // the stream, if it is a file that was opened here
    std::ostream* stream = nullptr;       // null for buffers
    std::unique_ptr<std::ostream> owned;  // the same, if it dies with the target
    std::unique_ptr<IWriter> writer;      // after the stream that it uses
    std::uint64_t number = 0;             // in order of opening
    Audience* audience = nullptr;
    std::size_t flushPlace = 0;  // 1 + its place among those to be flushed, or 0
    bool marked = false;         // to be closed
    bool failed = false;
};

// The targets of one context, in order of opening.
struct Audience {
    std::uint64_t contextId = 0;
    boost::container::small_vector<OutputTarget*, 1> targets;  // hardly ever more
    bool muted = false;                                        // inside a scope whose events are left out
};

// What remains of a target.
struct ClosedTarget {
    std::uint64_t contextId;
    bool wasLast;  // its context has no target any more
    std::shared_ptr<MetricsValueBuffer> buffer;
};

// All targets of an output. What goes wrong with one is remembered and does not disturb the others.
class TargetList {
  public:
    // Adds a target and begins its output. Lets what goes wrong with that out, and then has added nothing.
    OutputTarget& Open(std::uint64_t contextId, OutputTarget target);

    // In ascending order of context id.
    std::map<std::uint64_t, Audience>& Audiences() { return audiences_; }

    void Write(Audience& audience, std::span<const MetricsEvent> events) {
        for (OutputTarget* target : audience.targets) Write(*target, events);
    }
    // The same for a table of several roots; `root` as in IWriter::TurnTo.
    void WriteRows(Audience& audience, std::uint64_t root, std::span<const MetricsEvent> events);
    void EndTable(Audience& audience, std::uint64_t root);
    void Interrupt(Audience& audience);
    void WriteToEach(std::span<const MetricsEvent> events) {
        for (auto& [number, target] : targets_) Write(target, events);
    }
    // Hands on what was written since the last time.
    void Flush();

    void Mark(Audience& audience);
    void MarkAll();
    // Ends and removes the marked targets in order of opening.
    std::vector<ClosedTarget> CloseMarked();

    // What went wrong since the last time.
    std::vector<std::string> TakeProblems() { return std::exchange(problems_, {}); }

  private:
    Audience& AudienceFor(std::uint64_t contextId);
    void Write(OutputTarget& target, std::span<const MetricsEvent> events);
    void WantFlush(OutputTarget& target);
    void ForgoFlush(OutputTarget& target);
    ClosedTarget Close(OutputTarget& target);
    void CheckStream(OutputTarget& target);
    void CloseFile(OutputTarget& target);
    void Fail(OutputTarget& target, const char* reason);
    template <class Action>
    void Try(OutputTarget& target, Action action);

    std::map<std::uint64_t, OutputTarget> targets_;  // by number
    std::map<std::uint64_t, Audience> audiences_;
    std::vector<OutputTarget*> toFlush_;  // written to since the last flush
    std::vector<OutputTarget*> marked_;
    std::vector<std::string> problems_;
    std::uint64_t lastNumber_ = 0;
};

}  // namespace Metrics::detail
