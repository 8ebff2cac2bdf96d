#include "metrics/platform/posix/File.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace Metrics::platform {

namespace {

std::uint32_t ErrorUnless(bool good) {
    return good ? 0 : static_cast<std::uint32_t>(errno);
}

}  // namespace

int DuplicateAboveStandard(int handle) {
    return fcntl(handle, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

int OpenAboveStandard(const std::string& path, int flags, mode_t mode) {
    int handle = -1;
    do {
        handle = open(path.c_str(), flags | O_CLOEXEC, mode);
    } while (handle < 0 && errno == EINTR);
    if (handle < 0 || handle > STDERR_FILENO) return handle;
    const int above = DuplicateAboveStandard(handle);
    const int error = errno;
    close(handle);
    errno = error;
    return above;
}

File::File(const std::string& path, int flags, mode_t mode)
    : handle_(OpenAboveStandard(path, flags, mode)), error_(ErrorUnless(handle_ >= 0)) {}

File::~File() {
    if (handle_ >= 0) close(handle_);
}

std::uint32_t File::Read(std::size_t from, std::size_t most, std::string& text) const {
    std::array<char, 16384> buffer;
    while (most > 0) {
        const ssize_t length =
            pread(handle_, buffer.data(), std::min(most, buffer.size()), static_cast<off_t>(from));
        if (length <= 0) return ErrorUnless(length == 0);
        const auto size = static_cast<std::size_t>(length);
        text.append(buffer.data(), size);
        from += size;
        most -= size;
    }
    return 0;
}

std::uint32_t File::Write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t length = write(handle_, text.data(), text.size());
        if (length < 0) return ErrorUnless(false);
        text.remove_prefix(static_cast<std::size_t>(length));
    }
    return 0;
}

std::uint32_t File::Close() {
    const int handle = handle_;
    handle_ = -1;
    return ErrorUnless(close(handle) == 0);
}

}  // namespace Metrics::platform
