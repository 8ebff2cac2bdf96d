#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "metrics/platform/Platform.h"
#include "metrics/platform/posix/ProfileText.h"

namespace Metrics::platform {

namespace {

constexpr std::size_t kLargestFile = std::size_t{16} << 20;

// A file descriptor that closes itself. A failed call leaves its reason in errno.
class File {
  public:
    File(const std::string& path, int flags, mode_t mode = 0)
        : handle_(open(path.c_str(), flags | O_CLOEXEC, mode)) {}
    ~File() {
        if (handle_ >= 0) close(handle_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    explicit operator bool() const { return handle_ >= 0; }
    int Handle() const { return handle_; }

    // An error that the system keeps until then (a full quota) shows here at the latest.
    bool Close() {
        const int handle = handle_;
        handle_ = -1;
        return close(handle) == 0;
    }

  private:
    int handle_;
};

std::uint32_t LastError() {
    return static_cast<std::uint32_t>(errno);
}

// The path behind symbolic links, so that the file is replaced and not the link.
std::string Resolved(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::string(resolved.get()) : path;
}

// A file that is not there reads as an empty one. Anything but a plain file of a sensible size is an error.
std::uint32_t ReadWhole(const std::string& path, std::string& text, mode_t& mode) {
    const File file(path, O_RDONLY | O_NONBLOCK);
    if (!file) return errno == ENOENT ? 0 : LastError();
    struct stat status {};
    if (fstat(file.Handle(), &status) != 0) return LastError();
    if (!S_ISREG(status.st_mode)) return EINVAL;
    mode = status.st_mode & 07777;

    std::array<char, 16384> buffer;
    ssize_t length;
    while ((length = read(file.Handle(), buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(length));
        if (text.size() > kLargestFile) return EFBIG;
    }
    return length < 0 ? LastError() : 0;
}

bool WriteWhole(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t length = write(file, text.data(), text.size());
        if (length < 0) return false;
        text.remove_prefix(static_cast<std::size_t>(length));
    }
    return true;
}

// Others see the old file or the new one, never a part: written beside it, then renamed over it.
std::uint32_t ReplaceFile(const std::string& path, std::string_view text, mode_t mode) {
    const std::string beside = path + "." + std::to_string(CurrentProcessId()) + ".tmp";
    File file(beside, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0666);
    if (!file) return LastError();
    const bool keepsMode = mode == 0 || fchmod(file.Handle(), mode) == 0;
    if (keepsMode && WriteWhole(file.Handle(), text) && file.Close() &&
        std::rename(beside.c_str(), path.c_str()) == 0) {
        return 0;
    }
    const std::uint32_t error = LastError();
    unlink(beside.c_str());
    return error;
}

// Takes the lock that all writers of a folder's profiles share, at once or not at all. It is the folder's
// own, so no lock file stays behind. A file system without such locks goes without: the file is replaced in
// one step anyway.
std::uint32_t Lock(const File& folder) {
    if (!folder) return LastError();
    return flock(folder.Handle(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK ? EWOULDBLOCK : 0;
}

}  // namespace

std::uint32_t SetProfileSection(const std::string& path, const std::string& section,
                                std::string_view entries) {
    if (section.find('\n') != std::string::npos) return EINVAL;  // it would end the header line
    const std::string target = Resolved(path);
    const PathParts parts = SplitPath(target);
    const File folder(std::string(parts.drive).append(parts.directory), O_RDONLY | O_DIRECTORY);
    if (const std::uint32_t error = Lock(folder)) return error;

    std::string before;
    mode_t mode = 0;
    if (const std::uint32_t error = ReadWhole(target, before, mode)) return error;
    const std::string after = ReplaceProfileSection(before, section, entries);
    return after == before ? 0 : ReplaceFile(target, after, mode);
}

}  // namespace Metrics::platform
