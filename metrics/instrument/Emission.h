#pragma once

#include <string>

#include "metrics/MetricsValue.h"
#include "metrics/manager/EventBuilder.h"

namespace Metrics::detail {

/// The key under which a component is announced.
inline constexpr FourCC kComponentKey{"comp"};

/// Posts a name/value pair for context `contextId`. A text becomes an owned copy, and an empty one is left
/// out. Throws `std::bad_alloc`.
void PostNameValue(const MetricsThreadContext& record, std::uint64_t contextId, const MetricsValue& key,
                   const MetricsValue& value);

/// The mnemonic of a component. When the filter file is damaged that is logged, and the built-in names serve.
std::string ComponentMnemonic(std::uint64_t componentId);

}  // namespace Metrics::detail
