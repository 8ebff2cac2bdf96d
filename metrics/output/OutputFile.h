#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <streambuf>
#include <string>

#include "metrics/platform/Platform.h"

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

// Hands everything on to a file at once, since what writers hand over comes in blocks.
class OutputFileBuffer final : public std::streambuf {
  public:
    explicit OutputFileBuffer(platform::OutputFile& file) : file_(file) {}

  protected:
    std::streamsize xsputn(const char* text, std::streamsize size) override;
    int_type overflow(int_type c) override;

  private:
    platform::OutputFile& file_;
};

// A new file for text; an existing one is emptied, and others may read it meanwhile.
class OutputFileStream final : public std::ostream {
  public:
    // Throws OpenFailure.
    explicit OutputFileStream(const std::string& name);

    // The last chance to hear of what the system could not write; the stream has failed then.
    void Close();

  private:
    platform::OutputFile file_;
    OutputFileBuffer buffer_{file_};
};

// The file name for a context: the first '*' of the pattern gives way to the id, or else the id is appended.
std::string WildcardName(const std::string& pattern, std::uint64_t contextId);

}  // namespace Metrics::detail
