#pragma once

#include "metrics/Scope.h"

namespace Metrics::detail {

/// Copies of the call site's literals that outlive the module it stands in. Throws `std::bad_alloc` at the
/// first call for a site; every later one is a load.
const CallSite::Texts& KeepTexts(CallSite& site);

}  // namespace Metrics::detail
