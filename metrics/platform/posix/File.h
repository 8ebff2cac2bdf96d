// A file descriptor that closes itself.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Metrics::platform {

// Opens a file, also when a signal comes, with a descriptor above those of the standard streams, to which
// somebody may write who has closed them without knowing. -1 and errno when it fails.
int OpenAboveStandard(const std::string& path, int flags, mode_t mode);
int DuplicateAboveStandard(int handle);

// What fails returns the system's error number; 0 is success. One thread at a time.
class File {
  public:
    File(const std::string& path, int flags, mode_t mode = 0);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // 0, or why it is not open.
    std::uint32_t Error() const { return error_; }
    int Handle() const { return handle_; }

    // Appends to `text` what the file holds from there on, `most` bytes at most.
    std::uint32_t Read(std::size_t from, std::size_t most, std::string& text) const;
    std::uint32_t Write(std::string_view text);
    // An error that the system keeps until then (a full quota) shows here at the latest.
    std::uint32_t Close();

  private:
    int handle_;
    std::uint32_t error_;
};

}  // namespace Metrics::platform
