#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

OutputFile::~OutputFile() {
    if (handle_ >= 0) Close();
}

int OutputFile::Open(const std::string& path) {
    constexpr int kNewText = _O_WRONLY | _O_CREAT | _O_TRUNC | _O_TEXT | _O_NOINHERIT;
    return _sopen_s(&handle_, path.c_str(), kNewText, _SH_DENYNO, _S_IREAD | _S_IWRITE);
}

bool OutputFile::Write(std::string_view text) {
    constexpr std::size_t kMost = std::size_t{1} << 30;  // of what the system's call can count
    while (!text.empty()) {
        const int length = _write(handle_, text.data(), static_cast<unsigned>(std::min(text.size(), kMost)));
        if (length <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(length));
    }
    return true;
}

bool OutputFile::Close() {
    return _close(std::exchange(handle_, -1)) == 0;
}

}  // namespace Metrics::platform
