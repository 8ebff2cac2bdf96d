#pragma once

#include "metrics/Scope.h"

namespace Metrics {

/// Selects the constructor of scopes on a given context: a context's own scope, and those of subscopes.
class Scope::OnContext {};

/// What the own scopes of contexts measure: their time, in the way that the enable mask has all scopes do it.
inline unsigned long long MeasurementOfContexts() noexcept {
    const auto mask = detail::enableMask.load(std::memory_order_relaxed);
    return (mask & (Scope::kWallTime | Scope::kElapsedTime)) == Scope::kWallTime ? Scope::kWallTime
                                                                                 : Scope::kElapsedTime;
}

}  // namespace Metrics
