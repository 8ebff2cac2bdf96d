#pragma once

#include "metrics/MetricsValueBuffer.h"
#include "metrics/manager/Core.h"

namespace Metrics::detail {

/// Decodes the events of `buffer` and posts them to `core` from the calling thread, with context ids of this
/// process. Throws MetricsBufferError at the first damaged byte; what came before it has been posted.
void MergeRemoteEvents(Core& core, const MetricsValueBuffer& buffer);

}  // namespace Metrics::detail
