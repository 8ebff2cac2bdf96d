#define METRICS_DISABLED
#include "metrics/Instrument.h"

namespace Metrics::Testing {

int RunDisabledMarks();

int RunDisabledMarks() {
    int evaluated = 0;
    METRICS_SCOPE("scope");
    METRICS_SCOPE("scope", ++evaluated);
    METRICS_SCOPE_NAMED(++evaluated);
    METRICS_VALUE("value", ++evaluated);
    return evaluated;
}

}  // namespace Metrics::Testing
