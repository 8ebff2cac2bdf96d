#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

OutputFile::~OutputFile() {
    if (handle_ >= 0) Close();
}

int OutputFile::Open(const std::string& path) {
    constexpr mode_t kWhoeverMay = 0666;
    handle_ = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kWhoeverMay);
    return handle_ >= 0 ? 0 : errno;
}

bool OutputFile::Write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t length = write(handle_, text.data(), text.size());
        if (length >= 0)
            text.remove_prefix(static_cast<std::size_t>(length));
        else if (errno != EINTR)
            return false;
    }
    return true;
}

bool OutputFile::Close() {
    return close(std::exchange(handle_, -1)) == 0;
}

}  // namespace Metrics::platform
