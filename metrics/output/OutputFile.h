#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

namespace Metrics::detail {

// A file could not be opened. The message is for the caller who knows the name; Details() is for errors that
// are read later.
class OpenFailure : public std::runtime_error {
  public:
    OpenFailure(const std::string& name, bool tooManyFiles);

    const std::string& Details() const { return details_; }

  private:
    std::string details_;
};

// A new file for text; an existing one is emptied, and others may read it meanwhile. It has no buffer of its
// own, since what writers hand over comes in blocks. Throws OpenFailure.
std::unique_ptr<std::ofstream> OpenOutputFile(const std::string& name);

// The file name for a context: the first '*' of the pattern gives way to the id, or else the id is appended.
std::string WildcardName(const std::string& pattern, std::uint64_t contextId);

}  // namespace Metrics::detail
