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

bool Write(const std::string& path, const ProfileSection& section) {
    const char* const content = section.entries.c_str();  // whose own NUL is the second one at the end
    return WritePrivateProfileSectionA(section.name.c_str(), nullptr, path.c_str()) &&
           WritePrivateProfileSectionA(section.name.c_str(), content, path.c_str());
}

}  // namespace

std::uint32_t SetProfileSections(const std::string& path, std::span<const ProfileSection> sections) {
    for (const ProfileSection& section : sections)
        if (!HasEntries(path, section.name, section.entries) && !Write(path, section)) return GetLastError();
    return 0;
}

}  // namespace Metrics::platform
