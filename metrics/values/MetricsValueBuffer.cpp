#include "metrics/MetricsValueBuffer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "metrics/MetricsValue.h"
#include "metrics/platform/Prefetch.h"
#include "metrics/values/Utf8.h"

namespace Metrics {

namespace {

constexpr std::size_t kCountOffset = 8;
constexpr std::size_t kBytesOffset = 12;

// The tag of every text; the other kinds are tagged with their own number.
constexpr auto kTextTag = static_cast<std::uint8_t>(MetricsValueType::String);
// The stored length has 16 bits, so no encoder writes more of a text than this, its NUL included.
constexpr std::size_t kMaxText = 65535;

void StoreLittleEndian(std::uint8_t* to, std::uint64_t value, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i) to[i] = static_cast<std::uint8_t>(value >> 8 * i);
}

std::uint64_t LoadLittleEndian(const std::uint8_t* from, std::size_t bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i) value |= std::uint64_t{from[i]} << 8 * i;
    return value;
}

std::size_t PayloadBytes(MetricsValueType kind) {
    switch (kind) {
        case MetricsValueType::Bool: return 1;
        case MetricsValueType::FourCC: return 4;
        default: return 8;
    }
}

// How much of an event's text is stored: with its NUL no more than the low byte of a length can say, by which
// readers go on.
constexpr std::size_t kMaxEventText = 254;

// The number of bytes stored is the length modulo 65536: of a longer text, that much of its start.
template <typename Char>
void AppendText(std::vector<std::uint8_t>& bytes, std::basic_string_view<Char> text) {
    const auto stored = static_cast<std::uint16_t>(text.size() + 1);
    const std::size_t at = bytes.size();
    bytes.resize(at + 3 + stored);
    bytes[at] = kTextTag;
    StoreLittleEndian(&bytes[at + 1], stored, 2);
    const std::size_t copied = std::min<std::size_t>(stored, text.size());
    for (std::size_t i = 0; i < copied; ++i) bytes[at + 3 + i] = static_cast<std::uint8_t>(text[i]);
}

// Values on their way into a vector, which is appended to in one step for several of them.
class Encoder {
  public:
    // Cuts longer texts to `limit` bytes.
    Encoder(std::vector<std::uint8_t>& bytes, std::size_t limit) : bytes_(bytes), limit_(limit) {}

    void Add(const MetricsValue& value) {
        switch (value.Kind()) {
            case MetricsValueType::String:
            case MetricsValueType::StringRef: return AddText(value.Text());
            case MetricsValueType::WideString:
            case MetricsValueType::WideStringRef: return AddWide(value.WideText());
            default: return AddFixed(value);
        }
    }
    void Flush() {
        bytes_.insert(bytes_.end(), block_, block_ + size_);
        size_ = 0;
    }
    bool HasCut() const { return hasCut_; }

  private:
    void AddFixed(const MetricsValue& value) {
        std::uint8_t* to = Reserve(9);
        to[0] = static_cast<std::uint8_t>(value.Kind());
        StoreLittleEndian(to + 1, value.AsUInt64(), 8);
        size_ += 1 + PayloadBytes(value.Kind());
    }
    void AddText(std::string_view text) {
        if (text.size() > kShort) return AddLong(text);
        std::uint8_t* to = Reserve(3 + text.size() + 1);
        to[0] = kTextTag;
        StoreLittleEndian(to + 1, text.size() + 1, 2);
        std::memcpy(to + 3, text.data(), text.size());
        to[3 + text.size()] = 0;
        size_ += 3 + text.size() + 1;
    }
    void AddWide(std::wstring_view wide) {
        if (wide.size() <= limit_) {
            Flush();
            return AppendText(bytes_, wide);
        }
        std::string narrow;
        for (const wchar_t c : wide) narrow += static_cast<char>(c);
        AddLong(narrow);
    }
    void AddLong(std::string_view text) {
        Flush();
        const std::size_t kept = detail::SizeCutTo(text, limit_);
        hasCut_ |= kept < text.size();
        AppendText(bytes_, text.substr(0, kept));
    }
    std::uint8_t* Reserve(std::size_t size) {
        if (size > sizeof block_ - size_) Flush();
        return block_ + size_;
    }

    static constexpr std::size_t kShort = 100;

    std::vector<std::uint8_t>& bytes_;
    const std::size_t limit_;
    std::uint8_t block_[256];
    std::size_t size_ = 0;
    bool hasCut_ = false;
};

MetricsValue MakeFixed(MetricsValueType kind, std::uint64_t payload) {
    switch (kind) {
        case MetricsValueType::Bool: return payload != 0;
        case MetricsValueType::Double: return std::bit_cast<double>(payload);
        case MetricsValueType::DateTime: return MetricsDateTime(payload);
        case MetricsValueType::FourCC: return FourCC(static_cast<std::uint32_t>(payload));
        case MetricsValueType::EightCC: return EightCC(payload);
        case MetricsValueType::Opaque64: return Opaque64(payload);
        default: return payload;
    }
}

bool IsFixed(std::uint8_t tag) {
    return tag <= static_cast<std::uint8_t>(MetricsValueType::DateTime) ||
           (tag >= static_cast<std::uint8_t>(MetricsValueType::FourCC) &&
            tag <= static_cast<std::uint8_t>(MetricsValueType::Opaque64));
}

}  // namespace

MetricsBufferError::MetricsBufferError(const char* message) : std::runtime_error(message) {}

MetricsBufferError::~MetricsBufferError() = default;

MetricsValueBuffer::MetricsValueBuffer(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

MetricsValueBuffer::MetricsValueBuffer(MetricsValueBuffer&& other) noexcept
    : bytes_(std::exchange(other.bytes_, {})),
      cursor_(std::exchange(other.cursor_, 0)),
      hasCutTexts_(std::exchange(other.hasCutTexts_, false)) {}

MetricsValueBuffer& MetricsValueBuffer::operator=(MetricsValueBuffer&& other) noexcept {
    bytes_ = std::exchange(other.bytes_, {});
    cursor_ = std::exchange(other.cursor_, 0);
    hasCutTexts_ = std::exchange(other.hasCutTexts_, false);
    return *this;
}

std::uint32_t MetricsValueBuffer::Append(const MetricsValue& value) {
    const std::size_t before = bytes_.size();
    Encoder encoder(bytes_, SIZE_MAX);
    encoder.Add(value);
    encoder.Flush();
    return static_cast<std::uint32_t>(bytes_.size() - before);
}

std::uint32_t MetricsValueBuffer::AppendEvent(std::initializer_list<const MetricsValue*> values) {
    const std::size_t before = bytes_.size();
    Encoder encoder(bytes_, kMaxEventText);
    for (const MetricsValue* value : values) encoder.Add(*value);
    encoder.Flush();
    hasCutTexts_ |= encoder.HasCut();
    // The room for the next event, which comes when the events of many other buffers have passed the cache.
    platform::Prefetch(bytes_.data() + bytes_.size(),
                       std::min(bytes_.capacity() - bytes_.size(), std::size_t{192}));
    return static_cast<std::uint32_t>(bytes_.size() - before);
}

std::uint32_t MetricsValueBuffer::Extract(MetricsValue& value) const {
    const std::size_t start = cursor_;
    const std::uint8_t tag = *Take(1);
    if (cursor_ == bytes_.size()) ThrowExhausted();
    if (tag == kTextTag) {
        value = ExtractText();
    } else if (IsFixed(tag)) {
        const auto kind = static_cast<MetricsValueType>(tag);
        const std::size_t size = PayloadBytes(kind);
        value = MakeFixed(kind, LoadLittleEndian(Take(size), size));
    } else {
        throw MetricsBufferError("MetricsValueBuffer: Invalid metrics value");
    }
    return static_cast<std::uint32_t>(cursor_ - start);
}

// The text runs to its NUL, whatever the length says; the cursor goes by the low byte of the length, whatever
// the text is. That is how these buffers have always been read.
MetricsValue MetricsValueBuffer::ExtractText() const {
    const std::uint8_t length = *Take(2);
    const std::uint8_t* text = bytes_.data() + cursor_;
    const std::size_t searched = std::min(bytes_.size() - cursor_, kMaxText);
    const void* end = searched == 0 ? nullptr : std::memchr(text, 0, searched);
    if (end == nullptr) ThrowExhausted();
    Take(length);
    return std::string_view(reinterpret_cast<const char*>(text),
                            static_cast<std::size_t>(static_cast<const std::uint8_t*>(end) - text));
}

// Moves the cursor past the next `size` bytes and returns the first of them.
const std::uint8_t* MetricsValueBuffer::Take(std::size_t size) const {
    if (bytes_.size() - cursor_ < size) ThrowExhausted();
    const std::uint8_t* taken = bytes_.data() + cursor_;
    cursor_ += size;
    return taken;
}

// Nothing can be decoded after it either.
void MetricsValueBuffer::ThrowExhausted() const {
    cursor_ = bytes_.size();
    throw MetricsBufferError("MetricsValueBuffer: buffer unexpectedly exhausted");
}

void MetricsValueBuffer::AppendHeader(const MetricsBufferHeader& header) {
    std::uint8_t encoded[MetricsBufferHeader::kSize];
    StoreLittleEndian(encoded, header.magic, 4);
    StoreLittleEndian(encoded + 4, header.version, 4);
    StoreLittleEndian(encoded + kCountOffset, header.eventCount, 4);
    StoreLittleEndian(encoded + kBytesOffset, header.eventBytes, 4);
    bytes_.insert(bytes_.end(), encoded, encoded + MetricsBufferHeader::kSize);
}

void MetricsValueBuffer::PatchHeader(std::uint32_t eventCount, std::uint32_t eventBytes) {
    if (bytes_.size() < MetricsBufferHeader::kSize) return;
    StoreLittleEndian(&bytes_[kCountOffset], eventCount, 4);
    StoreLittleEndian(&bytes_[kBytesOffset], eventBytes, 4);
}

MetricsBufferHeader MetricsValueBuffer::ReadHeader() const {
    cursor_ = 0;
    MetricsBufferHeader header;
    if (bytes_.size() < MetricsBufferHeader::kSize) return header;
    const auto next = [this] { return static_cast<std::uint32_t>(LoadLittleEndian(Take(4), 4)); };
    header.magic = next();
    header.version = next();
    header.eventCount = next();
    header.eventBytes = next();
    return header;
}

}  // namespace Metrics
