#pragma once

#include "metrics/Export.h"
#include "metrics/MetricsValue.h"

namespace Metrics {

class Scope;

/// The emitting side of the plug-in link. No plug-in is ever loaded, so it does nothing.
class METRICS_API MetricsPlugin {
  public:
    MetricsPlugin() = delete;

    /// Would hand the scope and both values, as text, to a loaded plug-in.
    static void EmitEvent(const Scope* scope, const MetricsValue& a, const MetricsValue* const b);
};

}  // namespace Metrics
