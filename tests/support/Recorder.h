#pragma once

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "metrics/MetricsManager.h"
#include "metrics/MetricsSubscription.h"

namespace Metrics::Testing {

using Lines = std::vector<std::string>;

/// An event as a short line: its type and what it says. What differs from run to run is a tilde.
///
///     "1 0>7"  "2 0>7"  "3"  "6 parse"  "7 parse"  "10 rows=3"  "10 elapsed=~"  "11 pid=~"  "24 255"
inline std::string Line(const MetricsEvent& event) {
    const auto text = [](const MetricsValue& value) {
        const bool varies =
            value.Kind() == MetricsValueType::Double || value.Kind() == MetricsValueType::DateTime;
        return varies ? "~" : value.ToString(0);
    };
    const std::string type = std::to_string(static_cast<int>(event.Type()));
    const std::string first = text(event.param1);
    switch (event.Type()) {
        case MetricsEventType::ContextCreate:
        case MetricsEventType::ContextConstruct: return type + " " + first + ">" + text(event.param2);
        case MetricsEventType::ContextClose:
        case MetricsEventType::BitsChanged:
        case MetricsEventType::StateChanged: return type;
        case MetricsEventType::ScopeValue:
        case MetricsEventType::NameValue:
            return type + " " + first + "=" + (first == "pid" || first == "tid" ? "~" : text(event.param2));
        default: return type + " " + first;
    }
}

/// The lines without what contexts say of process and thread when they open, and without scopes' times.
inline Lines Structure(const Lines& lines) {
    Lines structure;
    bool inTime = false;
    for (const std::string& line : lines) {
        const std::string text = line.substr(line.starts_with('@') ? line.find(' ') + 1 : 0);
        inTime = inTime || text == "6 time";
        const bool identifies = text.starts_with("11 pid=") || text.starts_with("11 tid=") ||
                                text.starts_with("11 cid=") || text.starts_with("11 comp=");
        if (!inTime && !identifies) structure.push_back(line);
        inTime = inTime && text != "7 time";
    }
    return structure;
}

/// A subscriber that keeps what it gets. `Take` and its companions wait until everything that was posted
/// before is there; they need a manager that runs and collects.
class Recorder {
  public:
    Recorder()
        : subscription_(MetricsEventCategory::Events,
                        [this](const std::vector<MetricsEvent>& batch) { Add(batch); }) {}

    /// The events of contexts and scopes since the last call.
    std::vector<MetricsEvent> Take() { return WaitAndTake({}, MetricsEventType::CategoryUnion); }
    Lines TakeLines() { return ToLines(Take()); }

    /// The same with the context's id before each line: "@7 6 parse".
    Lines TakeLinesWithContext() {
        Lines lines;
        for (const MetricsEvent& event : Take()) {
            lines.push_back("@" + event.contextId.ToString(0) + " " + Line(event));
        }
        return lines;
    }

    /// What the manager itself posted, without its notes on mask and state.
    Lines TakeManagerLines() {
        return ToLines(WaitAndTake(MetricsEventType::CategoryUnion, MetricsEventType::BitsChanged));
    }

    /// All that arrived so far, the manager's own events too, without waiting.
    std::vector<MetricsEvent> TakeAll() {
        const std::lock_guard lock(mutex_);
        return std::exchange(events_, {});
    }

    static Lines ToLines(const std::vector<MetricsEvent>& events) {
        Lines lines;
        std::transform(events.begin(), events.end(), std::back_inserter(lines), Line);
        return lines;
    }

    const MetricsSubscription& Subscription() const { return subscription_; }

  private:
    // The mark is a change of no bits at all: it sets nothing and is an event all the same.
    static bool IsMark(const MetricsEvent& event) {
        return event.Type() == MetricsEventType::SetBits && event.param1 == 0;
    }

    // Waits for a mark, and takes the events of types from `first` to before `end`.
    std::vector<MetricsEvent> WaitAndTake(MetricsEventType first, MetricsEventType end) {
        const std::size_t before = marks_;
        auto& manager = MetricsManager::GetInstance();
        manager.SetBits(0, true);
        manager.WaitUntil([this, before] { return marks_ > before; }, 30000);
        std::vector<MetricsEvent> events = TakeAll();
        std::erase_if(events, [=](const auto& event) { return event.Type() < first || event.Type() >= end; });
        return events;
    }

    void Add(const std::vector<MetricsEvent>& batch) {
        const std::lock_guard lock(mutex_);
        std::remove_copy_if(batch.begin(), batch.end(), std::back_inserter(events_), IsMark);
        marks_ += static_cast<std::size_t>(std::count_if(batch.begin(), batch.end(), IsMark));
    }

    std::mutex mutex_;
    std::vector<MetricsEvent> events_;
    std::atomic<std::size_t> marks_ = 0;
    MetricsSubscription subscription_;
};

/// The log of a manager, line by line.
class LogKeeper {
  public:
    LogKeeper() {
        MetricsManager::GetInstance().SetLogDelegate([this](const std::string& line) {
            const std::lock_guard lock(mutex_);
            lines_.push_back(line);
        });
    }
    ~LogKeeper() { MetricsManager::GetInstance().SetLogDelegate(nullptr); }

    Lines Take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

  private:
    std::mutex mutex_;
    Lines lines_;
};

}  // namespace Metrics::Testing
