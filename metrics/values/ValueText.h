#pragma once

#include <string>

#include "metrics/MetricsValue.h"
#include "metrics/values/DateTimeText.h"
#include "metrics/values/TextBuffer.h"

namespace Metrics::detail {

// Appends what value.ToString(flags) returns. For the paths that run per event: the writer keeps `times` and
// `out` from one value to the next, and nothing is allocated but what `out` grows.
void AppendText(TextBuffer& out, const MetricsValue& value, MetricsValue::ToStringFlags flags,
                DateTimeText& times);

// The same into a string: a copy more.
void AppendText(std::string& out, const MetricsValue& value, MetricsValue::ToStringFlags flags,
                DateTimeText& times);

}  // namespace Metrics::detail
