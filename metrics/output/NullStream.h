#pragma once

#include <ostream>
#include <streambuf>
#include <string>

namespace Metrics {

// Takes every character and keeps none.
template <class Char, class Traits = std::char_traits<Char>>
class basic_nullbuf : public std::basic_streambuf<Char, Traits> {
  protected:
    typename Traits::int_type overflow(typename Traits::int_type c) override { return Traits::not_eof(c); }
    std::streamsize xsputn(const Char*, std::streamsize count) override { return count; }
};

// A stream for targets that need one and want no output.
template <class Char, class Traits = std::char_traits<Char>>
class basic_onullstream : public std::basic_ostream<Char, Traits> {
  public:
    basic_onullstream() : std::basic_ostream<Char, Traits>(nullptr) { this->init(&buffer_); }

  private:
    basic_nullbuf<Char, Traits> buffer_;
};

}  // namespace Metrics
