#pragma once

#include <stdexcept>
#include <string>

namespace Metrics::detail {

// Something that could not be done to a file. The message is for a caller who knows the file, and is part of
// the interface; Details() is for whoever reads of it later.
class FileError : public std::runtime_error {
  public:
    FileError(const std::string& message, const std::string& path, const std::string& reason = {})
        : std::runtime_error(message),
          details_(message + ": " + path + (reason.empty() ? "" : ": " + reason)) {}

    const std::string& Details() const { return details_; }

  private:
    std::string details_;
};

}  // namespace Metrics::detail
