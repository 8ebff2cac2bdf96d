#include "metrics/output/VolatileData.h"

#include <utility>

namespace Metrics::detail {

namespace {

bool NamesVolatileScope(const MetricsValue& name) {
    if (name.Kind() == MetricsValueType::FourCC) return name == MetricsValue(FourCC("time"));
    return name.ToString(0) == "time";
}

bool NamesIdentity(const MetricsValue& key) {
    const std::string text = key.ToString(0);
    return text == "cid" || text == "tid" || text == "pid" || text == "at";
}

}  // namespace

bool IsVolatile(const MetricsEvent& event, bool& inside) {
    switch (event.Type()) {
        case MetricsEventType::ScopeOpen:
            if (!NamesVolatileScope(event.param1)) return false;
            inside = true;
            return true;
        case MetricsEventType::ScopeClose: return std::exchange(inside, false);
        case MetricsEventType::NameValue: return NamesIdentity(event.param1);
        default: return inside;
    }
}

}  // namespace Metrics::detail
