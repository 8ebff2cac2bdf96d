#pragma once

#include <cstdint>
#include <cstring>
#include <utility>

#include "metrics/Export.h"
#include "metrics/MetricsEventType.h"
#include "metrics/MetricsValue.h"

namespace Metrics {

class MetricsValueBuffer;
class Scope;

/// The record that every mark becomes: five values, sixty bytes. It is built and filled on the marking
/// thread, copied or moved into the manager's queue, and only read from then on.
///
/// The header packs, from the lowest bit: 2 bits that are always 1, 6 bits of event type, 12 zero bits,
/// 12 bits of component id, 32 bits of sequence number.
class MetricsEvent {
  public:
    MetricsValue header;     ///< Opaque64 in the layout above.
    MetricsValue contextId;  ///< Int64; 0 when the thread had no current context.
    MetricsValue timestamp;  ///< DateTime; Int64 0 when there was no current context.
    MetricsValue param1;     ///< What the parameters mean depends on the type, see MetricsEventType.
    MetricsValue param2;

    /// Five times Int64 0.
    MetricsEvent() = default;
    /// A fresh event of the calling thread: its component id, the next sequence number, the current
    /// context's id and, when there is one, the current time. The parameters are left at Int64 0.
    METRICS_API explicit MetricsEvent(MetricsEventType type);
    MetricsEvent(MetricsValue headerWord, std::uint64_t context, MetricsValue time, MetricsValue first,
                 MetricsValue second) noexcept
        : header(std::move(headerWord)),
          contextId(context),
          timestamp(std::move(time)),
          param1(std::move(first)),
          param2(std::move(second)) {}

    /// With the header as a word. Throws `std::bad_alloc` when there is no memory to copy a text.
    MetricsEvent(std::uint64_t headerWord, std::uint64_t context, MetricsDateTime time,
                 const MetricsValue& first)
        : header(Opaque64(headerWord)), contextId(context), timestamp(time), param1(first) {}
    MetricsEvent(std::uint64_t headerWord, std::uint64_t context, MetricsDateTime time,
                 const MetricsValue& first, const MetricsValue& second)
        : header(Opaque64(headerWord)), contextId(context), timestamp(time), param1(first), param2(second) {}

    /// Most events own no text, and are copied as sixty bytes.
    MetricsEvent(const MetricsEvent& other) : MetricsEvent(other, MetricsValue::Bitwise{}) {
        if (other.OwnsText()) [[unlikely]]
            DuplicateTexts();
    }
    MetricsEvent(MetricsEvent&& other) noexcept : MetricsEvent(other, MetricsValue::Bitwise{}) {
        if (other.OwnsText()) [[unlikely]]
            other.ForgetTexts();
    }
    MetricsEvent& operator=(const MetricsEvent&) = default;
    MetricsEvent& operator=(MetricsEvent&&) noexcept = default;
    ~MetricsEvent() = default;

    /// The header word for a type, a component id (its low 12 bits are kept) and a sequence number.
    static constexpr std::uint64_t PackHeader(MetricsEventType type, std::uint64_t component,
                                              std::uint32_t sequence) noexcept {
        return 1U | static_cast<std::uint64_t>(ToSixBits(type)) << 2 | (component & 0xFFF) << 20 |
               static_cast<std::uint64_t>(sequence) << 32;
    }

    MetricsEventType Type() const noexcept {
        return static_cast<MetricsEventType>((header.AsUInt64() & 0xFF) >> 2);
    }
    /// Overwrites the type field and nothing else of the header.
    void SetType(MetricsEventType type) noexcept {
        header = Opaque64((header.AsUInt64() & ~std::uint64_t{0xFC}) | std::uint64_t{ToSixBits(type)} << 2);
    }
    std::uint32_t ComponentId() const noexcept { return static_cast<std::uint32_t>(header.AsUInt64()) >> 20; }
    std::uint32_t SequenceNumber() const noexcept {
        return static_cast<std::uint32_t>(header.AsUInt64() >> 32);
    }

    /// Whether any of the five values does.
    bool OwnsText() const noexcept {
        return ((header.bits_.tag | contextId.bits_.tag | timestamp.bits_.tag | param1.bits_.tag |
                 param2.bits_.tag) &
                MetricsValue::kOwned) != 0;
    }

    /// Appends the five values in order; returns the number of bytes that took.
    METRICS_API unsigned long Write(MetricsValueBuffer& buffer) const;
    /// Decodes five values from the buffer's read cursor; returns the number of bytes they took. Throws
    /// MetricsBufferError; the fields before the damaged one then have their new values, the others their
    /// old ones.
    METRICS_API unsigned long Read(const MetricsValueBuffer& buffer);

  private:
    friend class Scope;

    // The same as SetType where the header is known to be a word.
    void SetTypeInWord(MetricsEventType type) noexcept {
        header.bits_.low = (header.bits_.low & ~0xFCU) | ToSixBits(type) << 2;
    }
    // In one piece, which is four moves and not ten.
    MetricsEvent(const MetricsEvent& other, MetricsValue::Bitwise how) noexcept
        : header(how), contextId(how), timestamp(how), param1(how), param2(how) {
        std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof other);
    }
    METRICS_API void DuplicateTexts();
    METRICS_API void ForgetTexts() noexcept;

    static constexpr std::uint32_t ToSixBits(MetricsEventType type) noexcept {
        return static_cast<std::uint32_t>(type) & 63U;
    }
};

static_assert(sizeof(MetricsEvent) == 60 && alignof(MetricsEvent) == 4);

}  // namespace Metrics
