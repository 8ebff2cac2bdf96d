#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <utility>

#include "metrics/platform/Platform.h"
#include "metrics/platform/posix/File.h"

namespace Metrics::platform {

namespace {

// The descriptor of this process that a path stands for, or -1. Opening such a path would make another file
// of it, with a place of its own, so that two would write over each other; and a socket has no path.
int NamedDescriptor(std::string_view path) {
    if (path == "/dev/stdout") return STDOUT_FILENO;
    if (path == "/dev/stderr") return STDERR_FILENO;
    for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
        if (!path.starts_with(folder)) continue;
        int descriptor = -1;
        const char* const end = path.data() + path.size();
        const auto [rest, error] = std::from_chars(path.data() + folder.size(), end, descriptor);
        if (error == std::errc() && rest == end) return descriptor;
    }
    return -1;
}

int OpenPath(const std::string& path, OutputFile::Opening opening) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY;
    constexpr mode_t kWhoeverMay = 0666;
    if (opening == OutputFile::Opening::MayWait) return OpenAboveStandard(path, kFlags, kWhoeverMay);
    const int handle = OpenAboveStandard(path, kFlags | O_NONBLOCK, kWhoeverMay);
    if (handle >= 0) fcntl(handle, F_SETFL, fcntl(handle, F_GETFL) & ~O_NONBLOCK);
    return handle;
}

// A stream that the host has made non-blocking is waited for like any other.
void WaitUntilItTakesMore(int handle) {
    pollfd ready{handle, POLLOUT, 0};
    poll(&ready, 1, -1);
}

}  // namespace

OutputFile::~OutputFile() {
    if (handle_ >= 0) Close();
}

bool OutputFile::Failed() {
    error_ = errno;
    return false;
}

int OutputFile::Open(const std::string& path, Opening opening) {
    const int named = NamedDescriptor(path);
    handle_ = named >= 0 ? DuplicateAboveStandard(named) : OpenPath(path, opening);
    if (handle_ < 0 && !Failed()) return error_;
    struct stat status {};
    plain_ = named < 0 && fstat(handle_, &status) == 0 && S_ISREG(status.st_mode);
    return 0;
}

int OutputFile::Empty() {
    struct stat status {};
    if (!plain_ || (fstat(handle_, &status) == 0 && status.st_size == 0)) return 0;
    if (ftruncate(handle_, 0) != 0) Failed();
    return error_;
}

bool OutputFile::Write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t length = write(handle_, text.data(), text.size());
        if (length >= 0)
            text.remove_prefix(static_cast<std::size_t>(length));
        else if (errno == EAGAIN)
            WaitUntilItTakesMore(handle_);
        else if (errno != EINTR)
            return Failed();
    }
    return true;
}

bool OutputFile::Close() {
    return close(std::exchange(handle_, -1)) == 0 || Failed();
}

}  // namespace Metrics::platform
