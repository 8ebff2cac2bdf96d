#include <windows.h>

#include <vector>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

// What the system reads of a section at most; a longer one counts as changed.
constexpr DWORD kLongestSection = 32'767;

bool HasEntries(const std::string& path, const std::string& section, std::string_view entries) {
    std::vector<char> buffer(kLongestSection);
    const DWORD length =
        GetPrivateProfileSectionA(section.c_str(), buffer.data(), kLongestSection, path.c_str());
    return std::string_view(buffer.data(), length) == entries;
}

}  // namespace

std::uint32_t SetProfileSection(const std::string& path, const std::string& section,
                                std::string_view entries) {
    if (HasEntries(path, section, entries)) return 0;
    const std::string content(entries);  // whose own NUL is the second one at the end
    const bool written = WritePrivateProfileSectionA(section.c_str(), nullptr, path.c_str()) &&
                         WritePrivateProfileSectionA(section.c_str(), content.c_str(), path.c_str());
    return written ? 0 : GetLastError();
}

}  // namespace Metrics::platform
