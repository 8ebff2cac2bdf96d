#include "metrics/MetricsEvent.h"

#include <cstddef>
#include <iterator>

#include "metrics/MetricsValueBuffer.h"

namespace Metrics {

// The values are bitwise copies of another event's. When there is no memory for a text, this one and those
// behind it are given up, so that nobody frees what the other event owns.
void MetricsEvent::DuplicateTexts() {
    MetricsValue* const values[] = {&header, &contextId, &timestamp, &param1, &param2};
    std::size_t done = 0;
    try {
        for (; done < std::size(values); ++done) {
            if (values[done]->OwnsText()) values[done]->Duplicate();
        }
    } catch (...) {
        for (; done < std::size(values); ++done) values[done]->Forget();
        throw;
    }
}

void MetricsEvent::ForgetTexts() noexcept {
    for (MetricsValue* value : {&header, &contextId, &timestamp, &param1, &param2}) {
        if (value->OwnsText()) value->Forget();
    }
}

unsigned long MetricsEvent::Write(MetricsValueBuffer& buffer) const {
    return buffer.AppendEvent({&header, &contextId, &timestamp, &param1, &param2});
}

unsigned long MetricsEvent::Read(const MetricsValueBuffer& buffer) {
    unsigned long bytes = 0;
    for (MetricsValue* value : {&header, &contextId, &timestamp, &param1, &param2})
        bytes += buffer.Extract(*value);
    return bytes;
}

}  // namespace Metrics
