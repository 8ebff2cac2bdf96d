#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace Metrics::detail {

// A growing block of characters for the paths that run per event: whoever writes asks once for the room of a
// whole field and then writes by pointer, without a check per character. It keeps its memory when cleared.
class TextBuffer {
  public:
    TextBuffer() = default;
    // Begins in `memory`, which must live as long as the buffer; allocates only when that is full.
    template <std::size_t N>
    explicit TextBuffer(char (&memory)[N]) : begin_(memory), end_(memory), limit_(memory + N) {}
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    // Where to write the next `size` characters. Valid until the next call.
    char* Room(std::size_t size) {
        if (static_cast<std::size_t>(limit_ - end_) < size) Grow(size);
        return end_;
    }
    // Tells how far the room was filled.
    void Commit(char* end) { end_ = end; }

    void Append(char c) {
        *Room(1) = c;
        ++end_;
    }
    void Append(std::string_view text) { end_ += text.copy(Room(text.size()), text.size()); }
    // In decimal.
    void AppendNumber(std::uint64_t number) {
        constexpr std::size_t kDigits = 20;
        char* at = Room(kDigits);
        Commit(std::to_chars(at, at + kDigits, number).ptr);
    }

    void Clear() { end_ = begin_; }
    // Takes back what was written beyond `size`.
    void Truncate(std::size_t size) { end_ = begin_ + size; }
    std::size_t Size() const { return static_cast<std::size_t>(end_ - begin_); }
    std::string_view View() const { return {begin_, Size()}; }

  private:
    void Grow(std::size_t size);

    std::unique_ptr<char[]> memory_;
    char* begin_ = nullptr;
    char* end_ = nullptr;
    char* limit_ = nullptr;
};

}  // namespace Metrics::detail
