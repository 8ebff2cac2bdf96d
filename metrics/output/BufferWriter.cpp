#include "metrics/output/BufferWriter.h"

#include "metrics/MetricsEvent.h"

namespace Metrics {

void BufferWriter::Write(const MetricsEvent& event) {
    bytes_ += static_cast<std::uint32_t>(event.Write(buffer_));
    ++count_;
}

}  // namespace Metrics
