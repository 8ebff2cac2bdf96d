#pragma once

#include <cstdint>
#include <string_view>

namespace StreamingXml {

// Where in the input something stands, counted from 1; 64 bits, so that no input is too long.
struct Position {
    std::uint64_t line = 1;
    std::uint64_t column = 1;
};

// Follows the line feeds of what it is shown, eight bytes at a time.
class LineCounter {
  public:
    void Count(std::string_view bytes);

    const Position& Here() const { return here_; }
    // For an input that begins elsewhere than at line 1, or lines that were never seen as bytes.
    void SkipLines(std::uint64_t lines) { here_.line += lines; }

  private:
    Position here_;
};

}  // namespace StreamingXml
