#pragma once

#include <cstdint>
#include <ostream>
#include <streambuf>
#include <string>

#include "metrics/platform/Platform.h"

namespace Metrics::detail {

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

// A file for text that others may read meanwhile. Nothing may be written before it is open.
class OutputFileStream final : public std::ostream {
  public:
    using Opening = platform::OutputFile::Opening;

    OutputFileStream() : std::ostream(nullptr) { rdbuf(&buffer_); }

    // Once. What an existing file holds stays until Empty(). Both throw a FileError.
    void Open(const std::string& name, Opening opening);
    void Empty();
    // The last chance to hear of what the system could not write; the stream has failed then.
    void Close();

    const std::string& Name() const { return name_; }
    bool IsPlain() const { return file_.IsPlain(); }
    // The system's words for what went wrong last; empty if nothing did.
    std::string Failure() const;

  private:
    void Check(int error) const;

    std::string name_;
    platform::OutputFile file_;
    OutputFileBuffer buffer_{file_};
};

// The file name for a context: the first '*' of the pattern gives way to the id, or else the id is appended.
std::string WildcardName(const std::string& pattern, std::uint64_t contextId);

}  // namespace Metrics::detail
