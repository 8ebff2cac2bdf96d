#include <algorithm>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

PathParts SplitPath(std::string_view path) {
    PathParts parts;
    parts.drive = path.substr(0, DriveLength(path));
    path.remove_prefix(parts.drive.size());

    const auto nameStart = std::find_if(path.rbegin(), path.rend(), IsPathSeparator).base();
    const auto directoryLength = static_cast<std::size_t>(nameStart - path.begin());
    parts.directory = path.substr(0, directoryLength);
    path.remove_prefix(directoryLength);

    parts.name = path.substr(0, path.rfind('.'));
    parts.extension = path.substr(parts.name.size());
    return parts;
}

}  // namespace Metrics::platform
