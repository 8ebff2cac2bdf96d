#pragma once

#include <cstdint>

namespace Metrics {

/// What a MetricsEvent says. The event header keeps six bits of it.
enum class MetricsEventType : std::uint8_t {
    ContextCreate = 1,     ///< A context got its id: param1 the parent's id, param2 its own.
    ContextConstruct = 2,  ///< A context was constructed: param1 the parent's id, param2 its own.
    ContextClose = 3,      ///< A context was closed.
    DemuxSynthesized = 4,  ///< Made up while releasing events: param1 how many scopes are closed by force.
    ScopeOpen = 6,         ///< param1 is what the scope is about.
    ScopeClose = 7,        ///< Repeats the header, context and timestamp of the opening.
    ScopeValue = 10,       ///< A measurement inside a scope: param1 its name, param2 the value.
    NameValue = 11,        ///< An attribute of the next scope: param1 the key, param2 the value.
    CategoryUnion = 21,    ///< param1 is the union of all subscribed categories.
    SetBits = 24,          ///< Enable bits param1 were set.
    SetBitsAbsolute = 25,  ///< The enable mask became param1.
    ClearBits = 27,        ///< Enable bits param1 were cleared.
    ContextIdBase = 41,    ///< Only in merged buffers: context ids go on from param1.
    BitsChanged = 45,      ///< The worker saw another enable mask than before.
    StateChanged = 46,     ///< The worker saw another manager state than before.
};

}  // namespace Metrics
