#pragma once

#include <cstdint>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>

namespace Metrics::Testing {

/// Counts how often a text is written to it, and keeps nothing. Lines must arrive whole.
class CountingBuffer : public std::streambuf {
  public:
    explicit CountingBuffer(std::string what) : what_(std::move(what)) {}
    std::uint64_t Count() const { return count_; }

  private:
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        const std::string_view block(text, static_cast<std::size_t>(size));
        for (std::size_t at = block.find(what_); at != block.npos; at = block.find(what_, at + 1)) ++count_;
        return size;
    }
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }

    const std::string what_;
    std::uint64_t count_ = 0;
};

}  // namespace Metrics::Testing
