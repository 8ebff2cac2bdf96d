// The text of a profile file: "[section]" lines, each followed by its entries, one per line. Sections go by
// name without regard to case, as on Windows; of several with one name the first counts.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Metrics::platform {

// Where the sections of a profile file are, so that a file with ten thousand of them is read once.
class ProfileIndex {
  public:
    // From a header line to the next one, or to the end of the file.
    struct Extent {
        std::size_t begin;
        std::size_t end;
    };

    // Takes in the whole text of a file.
    void Read(std::string_view text);
    // Takes in a file that grew, from ReadOnFrom() to its end. False when that is not what stood there, so
    // that the file has to be read as a whole.
    bool ReadOn(std::string_view rest);
    // Where the last section begins: who adds to a file changes nothing before it.
    std::size_t ReadOnFrom() const { return last_; }

    // What sections are told apart by.
    static std::string Key(std::string_view section);
    const Extent* Find(std::string_view section) const;
    // A section as it stands in this file; entries are ended by a NUL each.
    std::string Format(std::string_view section, std::string_view entries) const;
    // What has to stand before a section that is added at the end.
    std::string_view Joint() const { return endsLine_ ? std::string_view() : lineEnd_; }

  private:
    void Note(std::string_view text, std::size_t at);

    std::unordered_map<std::string, Extent> extents_;  // by name in lower case
    std::size_t last_ = 0;
    std::string lastHeader_;
    std::string_view lineEnd_ = "\n";  // as the first line's
    bool endsLine_ = true;
};

}  // namespace Metrics::platform
