#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <vector>

#include "metrics/Export.h"

namespace Metrics {

class MetricsValue;

/// Damaged bytes: "MetricsValueBuffer: Invalid metrics value" or "MetricsValueBuffer: buffer unexpectedly
/// exhausted".
class METRICS_API MetricsBufferError : public std::runtime_error {
  public:
    explicit MetricsBufferError(const char* message);
    MetricsBufferError(const MetricsBufferError&) = default;
    MetricsBufferError& operator=(const MetricsBufferError&) = default;
    ~MetricsBufferError() override;
};

/// The sixteen bytes at the start of a buffer that carries events, four little-endian 32-bit numbers. Their
/// defaults describe a buffer without events.
struct MetricsBufferHeader {
    std::uint32_t magic = 0x4F5A4F42;
    std::uint32_t version = 1;
    std::uint32_t eventCount = 0;
    std::uint32_t eventBytes = 0;  ///< What MetricsEvent::Write returned for them, added up.

    static constexpr std::size_t kSize = 16;
};

/// Values and events as bytes, to be handed to another process: a byte vector that is filled by one writer
/// and then read once from front to back. Not to be shared between threads; reading moves a cursor even in a
/// const buffer. A copy has a cursor of its own, at the same place. What was moved from is empty.
///
/// All numbers are little-endian. Every text is stored narrow and comes back as an owned String. Readers go
/// on by the low byte of a text's length. So MetricsEvent::Write cuts texts at 254 bytes, before a character
/// of UTF-8 that would not fit, and nothing in a text is ever read as an event; Append stores a text whole,
/// and what follows one of 255 bytes or more is misread.
///
/// Decoding is safe against any bytes: nothing outside the vector is ever read.
class METRICS_API MetricsValueBuffer {
  public:
    MetricsValueBuffer() = default;
    /// Takes bytes that were saved or received, with the cursor at the first of them.
    explicit MetricsValueBuffer(std::vector<std::uint8_t> bytes);
    MetricsValueBuffer(const MetricsValueBuffer&) = default;
    MetricsValueBuffer& operator=(const MetricsValueBuffer&) = default;
    MetricsValueBuffer(MetricsValueBuffer&& other) noexcept;
    MetricsValueBuffer& operator=(MetricsValueBuffer&& other) noexcept;

    /// The encoded bytes, to be saved or sent. Valid until the buffer is next changed.
    const std::vector<std::uint8_t>& Bytes() const noexcept { return bytes_; }

    /// Appends one value; returns the number of bytes it took.
    std::uint32_t Append(const MetricsValue& value);
    /// Whether an event that was written here had a text of more than 254 bytes.
    bool HasCutTexts() const noexcept { return hasCutTexts_; }
    /// Decodes the value at the cursor into `value`, moves past it and returns the number of bytes it took.
    /// Throws MetricsBufferError and then leaves `value` as it was.
    std::uint32_t Extract(MetricsValue& value) const;

    /// Appends an event header; it belongs at the start of an empty buffer.
    void AppendHeader(const MetricsBufferHeader& header = {});
    /// Stores count and total in a header that stands at the start. Does nothing to a shorter buffer.
    void PatchHeader(std::uint32_t eventCount, std::uint32_t eventBytes);
    /// Moves the cursor to the start, and past the header when there are sixteen bytes to be one; a shorter
    /// buffer yields the defaults. What the header says is not checked against anything.
    MetricsBufferHeader ReadHeader() const;

  private:
    friend class MetricsEvent;

    std::uint32_t AppendEvent(std::initializer_list<const MetricsValue*> values);
    MetricsValue ExtractText() const;
    const std::uint8_t* Take(std::size_t size) const;
    [[noreturn]] void ThrowExhausted() const;

    std::vector<std::uint8_t> bytes_;
    // An index, so that neither growth nor a copy leaves it dangling; never beyond the end.
    mutable std::size_t cursor_ = 0;
    bool hasCutTexts_ = false;
};

}  // namespace Metrics
