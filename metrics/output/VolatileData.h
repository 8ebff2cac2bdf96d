#pragma once

#include "metrics/MetricsEvent.h"

namespace Metrics::detail {

// Whether an event is left out of muted output: the scopes named "time" with all that stands in them, and the
// name/values "cid", "tid", "pid" and "at". `inside` is kept for each target context: whether such a scope is
// open. Any scope that closes ends it.
bool IsVolatile(const MetricsEvent& event, bool& inside);

}  // namespace Metrics::detail
