#pragma once

#include <cstdint>

namespace Metrics::detail {

// Whether every reader of XML takes this character as a letter of names: the fourth edition's rule, which is
// the narrower one.
bool IsXmlLetter(std::uint32_t code);

}  // namespace Metrics::detail
