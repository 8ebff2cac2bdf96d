#include "metrics/platform/StandardStreams.h"

#include <unistd.h>

#include <csignal>

namespace Metrics::platform {

bool IsErrorStreamTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

void PrepareStandardStreams() {
    std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace Metrics::platform
