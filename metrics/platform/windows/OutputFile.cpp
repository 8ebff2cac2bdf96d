#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

constexpr int kLastStandard = 2;

// Opened again and again until it has a number above those of the standard streams.
int OpenAboveStandard(const std::string& path, int& handle) {
    constexpr int kFlags = _O_WRONLY | _O_CREAT | _O_TEXT | _O_NOINHERIT;
    std::vector<int> tooLow;
    int error = 0;
    for (;;) {
        error = _sopen_s(&handle, path.c_str(), kFlags, _SH_DENYNO, _S_IREAD | _S_IWRITE);
        if (error != 0 || handle > kLastStandard) break;
        tooLow.push_back(handle);
    }
    for (const int low : tooLow) _close(low);
    return error;
}

}  // namespace

OutputFile::~OutputFile() {
    if (handle_ >= 0) Close();
}

bool OutputFile::Failed() {
    error_ = errno;
    return false;
}

int OutputFile::Open(const std::string& path, Opening) {
    error_ = OpenAboveStandard(path, handle_);
    if (error_ != 0) return error_;
    plain_ = GetFileType(reinterpret_cast<HANDLE>(_get_osfhandle(handle_))) == FILE_TYPE_DISK;
    return 0;
}

int OutputFile::Empty() {
    if (plain_ && _filelengthi64(handle_) != 0) error_ = _chsize_s(handle_, 0);
    return error_;
}

bool OutputFile::Write(std::string_view text) {
    constexpr std::size_t kMost = std::size_t{1} << 30;  // of what the system's call can count
    while (!text.empty()) {
        const int length = _write(handle_, text.data(), static_cast<unsigned>(std::min(text.size(), kMost)));
        if (length <= 0) return Failed();
        text.remove_prefix(static_cast<std::size_t>(length));
    }
    return true;
}

bool OutputFile::Close() {
    return _close(std::exchange(handle_, -1)) == 0 || Failed();
}

}  // namespace Metrics::platform
