#include "metrics/MetricsEvent.h"

#include "metrics/MetricsValueBuffer.h"

namespace Metrics {

unsigned long MetricsEvent::Write(MetricsValueBuffer& buffer) const {
    unsigned long bytes = 0;
    for (const MetricsValue* value : {&header, &contextId, &timestamp, &param1, &param2})
        bytes += buffer.Append(*value);
    return bytes;
}

unsigned long MetricsEvent::Read(const MetricsValueBuffer& buffer) {
    unsigned long bytes = 0;
    for (MetricsValue* value : {&header, &contextId, &timestamp, &param1, &param2})
        bytes += buffer.Extract(*value);
    return bytes;
}

}  // namespace Metrics
