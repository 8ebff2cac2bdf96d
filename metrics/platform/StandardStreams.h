// The streams that a program starts with.
#pragma once

namespace Metrics::platform {

// Whether a person looks at the error stream, so that progress may be shown there.
bool IsErrorStreamTerminal();

// Standard input and output carry bytes as they are: no line end is translated. To be called before either
// is used.
void MakeStandardStreamsBinary();

}  // namespace Metrics::platform
