#include "metrics/platform/StandardStreams.h"

#include <unistd.h>

namespace Metrics::platform {

bool IsErrorStreamTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

void MakeStandardStreamsBinary() {}

}  // namespace Metrics::platform
