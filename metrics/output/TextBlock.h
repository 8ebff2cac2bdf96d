#pragma once

#include <cstddef>
#include <ostream>

#include "metrics/platform/Prefetch.h"
#include "metrics/values/TextBuffer.h"

namespace Metrics::detail {

// Collects lines and hands them to a stream in blocks of whole lines. Failures stay in the stream's state.
class TextBlock {
  public:
    explicit TextBlock(std::ostream& stream) : stream_(stream) {}

    TextBuffer& Text() { return text_; }

    void EndLine() {
        text_.Append('\n');
        if (text_.Size() >= kEnough) HandOver();
        // Room for the next line, which comes when those of many other files have passed the cache.
        platform::Prefetch(text_.Room(kLine), kLine);
    }

    void Flush() {
        HandOver();
        stream_.flush();
    }

  private:
    static constexpr std::size_t kLine = 128;
    // More makes the system calls no cheaper, and there may be ten thousand of these.
    static constexpr std::size_t kEnough = 16384;

    void HandOver() {
        const std::string_view lines = text_.View();
        stream_.write(lines.data(), static_cast<std::streamsize>(lines.size()));
        text_.Clear();
    }

    std::ostream& stream_;
    TextBuffer text_;
};

}  // namespace Metrics::detail
