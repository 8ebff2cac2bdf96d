#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Platform {

/// Another process of the program that is running. The folders beside this header hold it for each system.
class Process {
  public:
    /// Starts it with these arguments. Throws std::system_error.
    explicit Process(const std::vector<std::string>& arguments);
    Process(Process&& other) noexcept : native_(std::exchange(other.native_, 0)) {}
    Process& operator=(Process&&) = delete;
    /// Waits for its end.
    ~Process() { Wait(); }

    /// Waits for its end and returns its exit code; -1 when it did not exit by itself or was waited for
    /// before.
    int Wait() noexcept;

  private:
    std::intptr_t native_;  // a process id or a handle; 0 for none
};

}  // namespace Platform
