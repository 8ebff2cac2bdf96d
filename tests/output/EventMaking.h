#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "metrics/MetricsEvent.h"

namespace Metrics::Testing {

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

}  // namespace Metrics::Testing
