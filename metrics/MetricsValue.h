#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "metrics/Export.h"
#include "metrics/MetricsDateTime.h"

namespace Metrics {

/// The kinds of a MetricsValue. Only String and WideString own what they point at.
enum class MetricsValueType : std::uint8_t {
    Int64 = 0,
    Bool = 1,
    Double = 2,
    DateTime = 3,       ///< Ticks of MetricsDateTime.
    String = 4,         ///< Owned 8-bit text.
    WideString = 5,     ///< Owned wide text.
    StringRef = 6,      ///< Borrowed 8-bit text.
    WideStringRef = 7,  ///< Borrowed wide text.
    FourCC = 8,
    EightCC = 9,
    Opaque64 = 10,  ///< 64 bits without a text form, such as an event header.
};

namespace detail {

// Up to four characters are right-aligned; of a longer word the first four fill the top half and the rest
// is right-aligned in the bottom half, so that the zero bytes stand between them.
constexpr std::uint64_t PackCode(const char* text, std::size_t length) {
    std::uint64_t halves[2] = {0, 0};
    for (std::size_t i = 0; i < length; ++i)
        halves[i / 4] = halves[i / 4] << 8 | static_cast<unsigned char>(text[i]);
    return length > 4 ? halves[0] << 32 | halves[1] : halves[0];
}

}  // namespace detail

/// A name of up to four characters in 32 bits, made at compile time: FourCC("time").
struct FourCC {
    template <std::size_t N>
    requires(N <= 5) explicit constexpr FourCC(const char (&text)[N])
        : code(static_cast<std::uint32_t>(detail::PackCode(text, N - 1))) {}
    explicit constexpr FourCC(std::uint32_t value) : code(value) {}

    std::uint32_t code;
};

/// A name of up to eight characters in 64 bits, made at compile time: EightCC("elapsed").
struct EightCC {
    template <std::size_t N>
    requires(N <= 9) explicit constexpr EightCC(const char (&text)[N])
        : code(detail::PackCode(text, N - 1)) {}
    explicit constexpr EightCC(std::uint64_t value) : code(value) {}

    std::uint64_t code;
};

/// 64 bits that have no text form.
struct Opaque64 {
    explicit constexpr Opaque64(std::uint64_t value) : word(value) {}

    std::uint64_t word;
};

/// The tagged variant of which every field of an event is made: twelve bytes, eleven kinds.
///
/// Text given as `const char*`, `const wchar_t*`, `std::string_view` or `std::string` is copied and owned;
/// it ends at its first NUL. Ref() borrows instead: the text must then outlive every copy of the value,
/// events in the manager's queue included. A null text is the empty text. Wide text is read by the low byte
/// of each character wherever it becomes narrow.
///
/// A value may be used by one thread at a time. Copying owned text throws std::bad_alloc when memory runs
/// out; nothing else here throws.
///
///     MetricsValue name = EightCC("elapsed"), count = 42, file = MetricsValue::Ref("main.cpp");
class MetricsValue {
  public:
    /// How ToString() writes; combine with `|`.
    enum ToStringFlag : unsigned {
        EscapeNewlines = 0x01,  ///< A line feed in a text becomes backslash and n.
        CsvComma = 0x02,        ///< A text is quoted where a comma-separated field needs it.
        CsvPipe = 0x04,         ///< The same for fields separated by "|"; CsvComma goes first.
        XmlEscape = 0x08,       ///< Characters that XML reserves are escaped, control characters dropped.
        AlwaysQuote = 0x10,     ///< Every value stands in double quotes.
        WithSubseconds = 0x20,  ///< A date-time carries four digits of a second's fraction.
    };
    using ToStringFlags = unsigned;

    /// Int64 0.
    MetricsValue() noexcept : bits_{} {}
    template <CountingInteger T>
    MetricsValue(T value) noexcept
        : MetricsValue(MetricsValueType::Int64, static_cast<std::uint64_t>(value)) {}
    template <std::same_as<bool> T>
    MetricsValue(T value) noexcept : MetricsValue(MetricsValueType::Bool, value) {}
    template <std::floating_point T>
    MetricsValue(T value) noexcept
        : MetricsValue(MetricsValueType::Double, std::bit_cast<std::uint64_t>(static_cast<double>(value))) {}
    MetricsValue(MetricsDateTime time) noexcept : MetricsValue(MetricsValueType::DateTime, time.Ticks()) {}
    MetricsValue(FourCC name) noexcept : MetricsValue(MetricsValueType::FourCC, name.code) {}
    MetricsValue(EightCC name) noexcept : MetricsValue(MetricsValueType::EightCC, name.code) {}
    MetricsValue(Opaque64 bits) noexcept : MetricsValue(MetricsValueType::Opaque64, bits.word) {}
    METRICS_API MetricsValue(const char* text);
    METRICS_API MetricsValue(std::string_view text);
    MetricsValue(const std::string& text) : MetricsValue(std::string_view(text)) {}
    METRICS_API MetricsValue(const wchar_t* text);

    MetricsValue(const MetricsValue& other) : bits_(other.bits_) {
        if (OwnsText()) Duplicate();
    }
    MetricsValue(MetricsValue&& other) noexcept : bits_(other.bits_) { other.Forget(); }
    MetricsValue& operator=(const MetricsValue& other) {
        if (OwnsText() || other.OwnsText()) return *this = MetricsValue(other);
        bits_ = other.bits_;
        return *this;
    }
    MetricsValue& operator=(MetricsValue&& other) noexcept {
        const Bits bits = other.bits_;
        other.Forget();  // before the release, so that moving a value onto itself keeps it
        if (OwnsText()) Release();
        bits_ = bits;
        return *this;
    }
    ~MetricsValue() {
        if (OwnsText()) Release();
    }

    /// Borrows `text`, which is neither copied nor freed.
    static MetricsValue Ref(const char* text) noexcept {
        return {MetricsValueType::StringRef, Address(text != nullptr ? text : "")};
    }
    static MetricsValue Ref(const wchar_t* text) noexcept {
        return {MetricsValueType::WideStringRef, Address(text != nullptr ? text : L"")};
    }

    /// Now, in UTC, as a DateTime with a resolution of one millisecond.
    METRICS_API static MetricsValue FromCurrentTime() noexcept;

    MetricsValueType Kind() const noexcept { return static_cast<MetricsValueType>(bits_.tag & 0xFF); }
    bool IsText() const noexcept { return IsText(Kind()); }
    bool OwnsText() const noexcept { return (bits_.tag & kOwned) != 0; }

    /// The payload's 64 bits, whatever the kind; 0 for a text.
    std::uint64_t AsUInt64() const noexcept { return IsText() ? 0 : Payload(); }
    std::int64_t AsInt64() const noexcept { return static_cast<std::int64_t>(AsUInt64()); }
    /// Whether the payload is other than zero; false for a text.
    bool AsBool() const noexcept { return AsUInt64() != 0; }
    /// The number of a Double, the converted payload of an Int64 or Bool, 0 for every other kind.
    METRICS_API double AsDouble() const noexcept;
    /// The time of a DateTime, no time for every other kind.
    MetricsDateTime AsDateTime() const noexcept {
        return Kind() == MetricsValueType::DateTime ? MetricsDateTime(Payload()) : MetricsDateTime();
    }
    /// The text of a String or StringRef, "" for every other kind. Lives as long as the value owns it, or
    /// as long as what was borrowed.
    const char* Text() const noexcept {
        return IsText() && !IsWide() ? reinterpret_cast<const char*>(Pointer()) : "";
    }
    /// The same for WideString and WideStringRef.
    const wchar_t* WideText() const noexcept {
        return IsText() && IsWide() ? reinterpret_cast<const wchar_t*>(Pointer()) : L"";
    }

    /// The value as text, free of the locale: an integer in decimal, a Double with six decimals, a DateTime
    /// as "2013-04-08 18:05:09", a code by its printable characters, an Opaque64 as nothing. A carriage
    /// return in a text is always dropped. `flags` is any combination of ToStringFlag.
    METRICS_API std::string ToString(ToStringFlags flags) const;

    /// Same kind and same payload; texts are compared by their characters.
    METRICS_API bool operator==(const MetricsValue& other) const noexcept;

  private:
    friend class MetricsEvent;
    friend class Scope;

    // Copied as a whole. The payload stands on a 4-byte boundary, so it is kept as two words and is only ever
    // copied out; no 8-byte object exists there to be referred to.
    struct Bits {
        std::uint32_t tag;  // the kind, and whether the value owns a text
        std::uint32_t low;
        std::uint32_t high;
    };
    static constexpr std::uint32_t kOwned = 0x100;

    // Copies a value that is known to own nothing, or whose owner gives it up.
    struct Bitwise {};
    MetricsValue(const MetricsValue& other, Bitwise) noexcept : bits_(other.bits_) {}
    // To be filled by who copies the event that it is a part of.
    explicit MetricsValue(Bitwise) noexcept {}

    MetricsValue(MetricsValueType kind, std::uint64_t payload) noexcept
        : bits_{Tag(kind), static_cast<std::uint32_t>(payload), static_cast<std::uint32_t>(payload >> 32)} {}

    static constexpr bool IsText(MetricsValueType kind) noexcept {
        return (static_cast<unsigned>(kind) & ~3U) == 4;
    }
    static constexpr std::uint32_t Tag(MetricsValueType kind) noexcept {
        const bool owns = kind == MetricsValueType::String || kind == MetricsValueType::WideString;
        return static_cast<std::uint32_t>(kind) | (owns ? kOwned : 0);
    }
    static std::uint64_t Address(const void* text) noexcept { return reinterpret_cast<std::uintptr_t>(text); }
    std::uint64_t Payload() const noexcept { return std::uint64_t{bits_.high} << 32 | bits_.low; }
    std::uintptr_t Pointer() const noexcept { return static_cast<std::uintptr_t>(Payload()); }
    bool IsWide() const noexcept { return (bits_.tag & 1U) != 0; }
    void Forget() noexcept { bits_ = {}; }
    METRICS_API void Duplicate();
    METRICS_API void Release() noexcept;

    Bits bits_;
};

static_assert(sizeof(MetricsValue) == 12 && alignof(MetricsValue) == 4);

}  // namespace Metrics
