#pragma once

#include <string_view>

#include "metrics/values/TextBuffer.h"

namespace Metrics::detail {

// Appends `text` quoted and escaped as a combination of MetricsValue::ToStringFlag asks. Wide text is
// narrowed to the low byte of each character. Knows no locale; bytes from 0x80 up are ordinary characters.
void AppendEscaped(TextBuffer& out, std::string_view text, unsigned flags);
void AppendEscaped(TextBuffer& out, std::wstring_view text, unsigned flags);

}  // namespace Metrics::detail
