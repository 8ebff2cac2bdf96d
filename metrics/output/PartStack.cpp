#include "metrics/output/PartStack.h"

namespace Metrics::detail {

MetricsEvent PartAttribute(const MetricsEvent& opening, std::int64_t part) {
    MetricsEvent attribute(opening.header, ContextOf(opening), opening.timestamp, MetricsValue::Ref("part"),
                           part);
    attribute.SetType(MetricsEventType::NameValue);
    return attribute;
}

MetricsEvent Closing(const MetricsEvent& opening) {
    MetricsEvent closing = opening;
    closing.SetType(MetricsEventType::ScopeClose);
    return closing;
}

bool IsCalledPart(const MetricsEvent& attribute) {
    return attribute.param1.ToString(0) == "part";
}

MetricsEvent SetAside(const MetricsEvent& attribute) {
    MetricsEvent renamed = attribute;
    renamed.param1 = MetricsValue::Ref("_part");
    return renamed;
}

void PartStack::SetOwnPartsAside(std::size_t end) {
    for (std::size_t at = 0; at < end; ++at) {
        MetricsEvent& event = kept_[at];
        if (event.Type() == MetricsEventType::NameValue && IsCalledPart(event)) event = SetAside(event);
    }
}

std::vector<std::size_t> PartStack::FirstParts(const EventFifo& events) const {
    ElementStack elements = elements_;
    std::vector<std::size_t> marks;
    std::vector<std::size_t> first(open_.size(), 0);  // of the marks of each open element
    std::size_t waiting = 0;                          // where those of the next one begin
    std::size_t index = 0;
    const auto drop = [&](std::size_t ended) {
        if (ended != 0) {
            waiting = first[first.size() - ended];
            first.resize(first.size() - ended);
        }
        marks.resize(waiting);
    };
    events.ForEach([&](const MetricsEvent& event) {
        switch (event.Type()) {
            case MetricsEventType::NameValue:
                if (IsCalledPart(event)) marks.push_back(index);
                break;
            case MetricsEventType::ScopeOpen:
                elements.Open(event);
                first.push_back(waiting);
                marks.push_back(index);
                waiting = marks.size();
                break;
            case MetricsEventType::ScopeClose: drop(elements.Close(event)); break;
            case MetricsEventType::ContextClose:
                if (const std::size_t ended = elements.Leave(ContextOf(event)); ended != 0) drop(ended);
                break;
            case MetricsEventType::DemuxSynthesized: drop(elements.Leave(ContextOf(event))); break;
            default: break;
        }
        ++index;
    });
    marks.resize(waiting);  // what waits is no attribute of anything yet
    return marks;
}

void PartStack::Clear() {
    elements_.Clear();
    open_.clear();
    kept_.clear();
    waiting_ = 0;
    isCut_ = false;
}

}  // namespace Metrics::detail
