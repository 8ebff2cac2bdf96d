#include "metrics/platform/StandardStreams.h"

#include <fcntl.h>
#include <io.h>
#include <stdio.h>

namespace Metrics::platform {

bool IsErrorStreamTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

void PrepareStandardStreams() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

}  // namespace Metrics::platform
