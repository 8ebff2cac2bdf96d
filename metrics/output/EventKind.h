#pragma once

#include <cstdint>

#include "metrics/MetricsEvent.h"

namespace Metrics::detail {

inline std::uint64_t ContextOf(const MetricsEvent& event) {
    return event.contextId.AsUInt64();
}

// For events of type ContextCreate.
inline std::uint64_t CreatedContext(const MetricsEvent& event) {
    return event.param2.AsUInt64();
}

inline bool CreatesRoot(const MetricsEvent& event) {
    return event.Type() == MetricsEventType::ContextCreate && event.param1.AsUInt64() == 0;
}

inline bool CreatesChild(const MetricsEvent& event) {
    return event.Type() == MetricsEventType::ContextCreate && event.param1.AsUInt64() != 0;
}

// True for a type that is among the given ones, which are few and known when this is compiled.
template <class... Types>
constexpr bool IsOneOf(MetricsEventType type, Types... types) {
    constexpr auto bit = [](MetricsEventType one) { return std::uint64_t{1} << static_cast<unsigned>(one); };
    return (bit(type) & (bit(types) | ...)) != 0;
}

// Whether scopes are open after the event that were not before it, or the other way round.
inline bool OpensOrCloses(const MetricsEvent& event) {
    using Type = MetricsEventType;
    return IsOneOf(event.Type(), Type::ContextClose, Type::DemuxSynthesized, Type::ScopeOpen,
                   Type::ScopeClose);
}

}  // namespace Metrics::detail
