// The streams that a program starts with.
#pragma once

namespace Metrics::platform {

// Whether a person looks at the error stream, so that progress may be shown there.
bool IsErrorStreamTerminal();

// For a program that filters bytes, before it reads or writes any: no line end is translated, and writing
// where nobody reads any more fails (EPIPE; EINVAL on Windows) rather than end the process.
void PrepareStandardStreams();

}  // namespace Metrics::platform
