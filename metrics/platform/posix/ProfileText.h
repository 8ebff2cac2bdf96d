// The text of a profile file: "[section]" lines, each followed by its entries, one per line.
#pragma once

#include <string>
#include <string_view>

namespace Metrics::platform {

// `text` with the entries (each ended by a NUL) as the whole of `[section]`, which is added at the end when
// it is not there. Everything outside the section keeps its bytes. Sections go by name without regard to
// case, as on Windows.
std::string ReplaceProfileSection(std::string_view text, std::string_view section, std::string_view entries);

}  // namespace Metrics::platform
