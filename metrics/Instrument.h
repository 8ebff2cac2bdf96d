#pragma once

#include "metrics/Scope.h"

/// Marks in one line each. With METRICS_DISABLED defined they expand to nothing.
///
///     METRICS_SCOPE("parse");              // open to the end of the block, with file and line at hand
///     METRICS_SCOPE("parse", bits);        // the same behind gate bits, or with measurements selected
///     METRICS_SCOPE_NAMED(table.name());   // a name made at run time; copied, and only when the scope opens
///     METRICS_VALUE("rows", rows.size());  // a measurement, on the innermost open scope
///
/// METRICS_VALUE emits on the thread's innermost open scope of its current context; when the context has none
/// open there, on the context itself, as `Context::Emit` does. The names of METRICS_SCOPE and METRICS_VALUE
/// are string literals. The value of METRICS_VALUE is not evaluated without a context that is enabled.
#ifdef METRICS_DISABLED

#define METRICS_SCOPE(...) static_cast<void>(0)
#define METRICS_SCOPE_NAMED(...) static_cast<void>(0)
#define METRICS_VALUE(name, value) static_cast<void>(0)

#else

// The name of a variable that stands on this line. Two steps, so that the line number is filled in before it
// is joined.
#define METRICS_JOIN_(a, b) a##b
#define METRICS_JOIN(a, b) METRICS_JOIN_(a, b)

#define METRICS_SCOPE(...) METRICS_SCOPE_(METRICS_JOIN(metricsScope, __LINE__), __VA_ARGS__, 0ULL, )
#define METRICS_SCOPE_(variable, name, bits, ...) METRICS_SCOPE_DECLARE_(variable, name, bits)
#define METRICS_SCOPE_DECLARE_(variable, name, bits)                                \
    static constinit ::Metrics::detail::CallSite variable##Site{name "", __FILE__}; \
    const ::Metrics::Scope variable(variable##Site, __LINE__, bits)

#define METRICS_SCOPE_NAMED(...) \
    METRICS_SCOPE_NAMED_(METRICS_JOIN(metricsScope, __LINE__), __VA_ARGS__, 0ULL, )
#define METRICS_SCOPE_NAMED_(variable, text, bits, ...) METRICS_SCOPE_NAMED_DECLARE_(variable, text, bits)
#define METRICS_SCOPE_NAMED_DECLARE_(variable, text, bits)                     \
    static constinit ::Metrics::detail::CallSite variable##Site{"", __FILE__}; \
    const ::Metrics::Scope variable(::std::string_view(text), variable##Site, __LINE__, bits)

#define METRICS_VALUE(name, value)                                                                 \
    do {                                                                                           \
        static constinit ::Metrics::detail::CallSite metricsSite{name "", __FILE__};               \
        if (const auto metricsTarget = ::Metrics::Scope::FindValueTarget())                        \
            ::Metrics::detail::EmitAt(metricsSite, metricsTarget, ::Metrics::MetricsValue(value)); \
    } while (false)

#endif
