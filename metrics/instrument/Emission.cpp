#include "metrics/instrument/Emission.h"

#include "metrics/MetricsBitsUtils.h"
#include "metrics/bits/BitsTable.h"

namespace Metrics::detail {

namespace {

bool IsEmptyText(const MetricsValue& value) {
    return *value.Text() == '\0' && *value.WideText() == L'\0';
}

// Borrowed text may be gone when the worker reads the event.
MetricsValue Owned(const MetricsValue& text) {
    switch (text.Kind()) {
        case MetricsValueType::StringRef: return MetricsValue(text.Text());
        case MetricsValueType::WideString:
        case MetricsValueType::WideStringRef: return MetricsValue(text.ToString(0));
        default: return text;
    }
}

}  // namespace

void PostNameValue(const MetricsThreadContext& record, std::uint64_t contextId, const MetricsValue& key,
                   const MetricsValue& value) {
    if (value.IsText() && IsEmptyText(value)) return;
    PostFor(record, MetricsEventType::NameValue, contextId, key, Owned(value));
}

std::string ComponentMnemonic(std::uint64_t componentId) {
    if (FilterError()) [[unlikely]] {
        if (const auto core = CurrentCoreAndGeneration().first) core->LogFilterError();
    }
    return MetricsBitsUtils::GetComponentName(componentId, true);
}

}  // namespace Metrics::detail
