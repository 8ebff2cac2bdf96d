#pragma once

#include "metrics/Scope.h"

namespace Metrics {

/// Selects the constructor of scopes on a given context: a context's own scope, and those of subscopes.
class Scope::OnContext {};

}  // namespace Metrics
