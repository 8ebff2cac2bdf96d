#include "metrics/MetricsDemultiplexer.h"

#include "metrics/output/EventSequencer.h"

namespace Metrics {

using detail::EventSequencer;

MetricsDemultiplexer::MetricsDemultiplexer(Mode mode) : sequencer_(std::make_unique<EventSequencer>(mode)) {}

MetricsDemultiplexer::~MetricsDemultiplexer() = default;

void MetricsDemultiplexer::EnableForcedChildClosure(bool enable, unsigned long long rootId) {
    sequencer_->SetForcing({.on = enable, .rootId = rootId});
}

unsigned long long MetricsDemultiplexer::EnqueEvent(const MetricsEvent& event) {
    const EventSequencer::Admission admission = sequencer_->Admit(event);
    const unsigned long long created = admission.newRoot != nullptr ? admission.newRoot->id : 0;
    if (admission.record != nullptr) sequencer_->Hold(*admission.record, event);
    return created;
}

bool MetricsDemultiplexer::DequeEvent(unsigned long long rootId, MetricsEvent& event) {
    return sequencer_->Take(rootId, event);
}

}  // namespace Metrics
