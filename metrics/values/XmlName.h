#pragma once

#include <string>
#include <string_view>

#include "metrics/values/TextBuffer.h"

// Any text as a name of XML. Letters, ASCII digits, '_', '-' and '.' stay; every other character becomes a
// group "_xHHHH_" of its number in hexadecimal, beyond U+FFFF "_xHHHHHHHH_". So does what may not stand
// first, and an underscore that would begin such a group by chance. The empty text is "_x_".
namespace Metrics::detail {

// Whether the text is a name as it is. May say no of one that only looks as if it held a group.
bool IsPlainXmlName(std::string_view text);

// Appends the name. A byte that begins no character counts as the character of that number.
void AppendXmlName(TextBuffer& out, std::string_view text);

// The text that a name stands for. What only looks like a group stays.
std::string UndoXmlName(std::string_view name);

}  // namespace Metrics::detail
