#include "metrics/MetricsValueBuffer.h"

#include <gtest/gtest.h>

#include <random>

#include "metrics/MetricsEvent.h"

namespace Metrics {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr char kExhausted[] = "MetricsValueBuffer: buffer unexpectedly exhausted";
constexpr char kInvalid[] = "MetricsValueBuffer: Invalid metrics value";

Bytes Encode(const MetricsValue& value) {
    MetricsValueBuffer buffer;
    const std::uint32_t size = buffer.Append(value);
    EXPECT_EQ(size, buffer.Bytes().size());
    return buffer.Bytes();
}

std::string ErrorOf(const Bytes& bytes) {
    MetricsValue value = "untouched";
    try {
        MetricsValueBuffer(bytes).Extract(value);
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(value.Text(), "untouched");
        return error.what();
    }
    return "no error";
}

TEST(MetricsValueBuffer, EncodesEachKind) {
    EXPECT_EQ(Encode(-2), (Bytes{0, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(Encode(true), (Bytes{1, 1}));
    EXPECT_EQ(Encode(1.0), (Bytes{2, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
    EXPECT_EQ(Encode(MetricsDateTime(1)), (Bytes{3, 0, 0x98, 0x7F, 0x33, 0, 0, 0, 0}));
    EXPECT_EQ(Encode("ab"), (Bytes{4, 3, 0, 'a', 'b', 0}));
    EXPECT_EQ(Encode(MetricsValue::Ref("")), (Bytes{4, 1, 0, 0}));
    EXPECT_EQ(Encode(L"\u00E9\u20AC"), (Bytes{4, 3, 0, 0xE9, 0xAC, 0}));
    EXPECT_EQ(Encode(FourCC("ABCD")), (Bytes{8, 'D', 'C', 'B', 'A'}));
    EXPECT_EQ(Encode(EightCC("ABCDEFGH")), (Bytes{9, 'H', 'G', 'F', 'E', 'D', 'C', 'B', 'A'}));
    EXPECT_EQ(Encode(Opaque64(1)), (Bytes{10, 1, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(MetricsValueBuffer, DecodesWhatItEncoded) {
    const MetricsValue values[] = {-2,   true,           1.5,          MetricsDateTime(1),
                                   "ab", FourCC("ABCD"), EightCC("a"), Opaque64(UINT64_MAX)};
    MetricsValueBuffer buffer;
    for (const MetricsValue& value : values) buffer.Append(value);
    const MetricsValueBuffer copy = buffer;
    for (const MetricsValue& value : values) {
        MetricsValue decoded = "old";
        EXPECT_EQ(copy.Extract(decoded), Encode(value).size());
        EXPECT_EQ(decoded, value);
    }
}

TEST(MetricsValueBuffer, LongTextsKeepTheirUnevenLengths) {
    MetricsValue text;
    EXPECT_EQ(MetricsValueBuffer(Encode(std::string(300, 'x'))).Extract(text), 3U + 301 % 256);
    EXPECT_EQ(text, MetricsValue(std::string(300, 'x')));
    EXPECT_EQ(Encode(std::string(65535, 'x')).size(), 3U);
    EXPECT_EQ(Encode(std::string(65540, 'x')).size(), 3U + 5);
}

TEST(MetricsValueBuffer, DamagedBytesRaiseTheirError) {
    for (const Bytes& bytes : {Bytes{}, Bytes{0}, Bytes{5}, Bytes{0, 1, 2}, Bytes{8, 1, 2, 3}, Bytes{4, 1},
                               Bytes{4, 1, 0}, Bytes{4, 2, 0, 'a', 'b'}, Bytes{4, 9, 0, 'a', 0}})
        EXPECT_EQ(ErrorOf(bytes), kExhausted) << testing::PrintToString(bytes);
    for (const Bytes& bytes : {Bytes{5, 1}, Bytes{6, 1}, Bytes{7, 1}, Bytes{11, 1}, Bytes{255, 1}})
        EXPECT_EQ(ErrorOf(bytes), kInvalid);
}

TEST(MetricsValueBuffer, HeaderIsWrittenPatchedAndRead) {
    MetricsValueBuffer buffer;
    buffer.PatchHeader(7, 7);
    buffer.AppendHeader();
    buffer.Append(true);
    buffer.PatchHeader(0x01020304, 2);
    EXPECT_EQ(buffer.Bytes(), (Bytes{0x42, 0x4F, 0x5A, 0x4F, 1, 0, 0, 0, 4, 3, 2, 1, 2, 0, 0, 0, 1, 1}));
    MetricsValue value;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(buffer.ReadHeader().eventCount, 0x01020304U);
        EXPECT_EQ(buffer.Extract(value), 2U);
    }
    const MetricsValueBuffer tooShort(Bytes{1, 1});
    EXPECT_EQ(tooShort.Extract(value), 2U);
    EXPECT_EQ(tooShort.ReadHeader().magic, 0x4F5A4F42U);
    EXPECT_EQ(tooShort.Extract(value), 2U) << "the cursor stands at the first byte again";
}

// Reads events until an error ends it; every value takes bytes, so it must end.
void ReadToTheEnd(const Bytes& bytes) {
    const MetricsValueBuffer buffer(bytes);
    MetricsEvent event;
    std::size_t taken = 0;
    EXPECT_THROW(
        for (;;) {
            taken += event.Read(buffer);
            ASSERT_LE(taken, bytes.size());
        },
        MetricsBufferError);
}

TEST(MetricsValueBuffer, AnyBytesEndInAnError) {
    std::mt19937 random(4711);
    MetricsValueBuffer valid;
    for (int i = 0; i < 4; ++i) MetricsEvent(Opaque64(1), 5, MetricsDateTime(1), "name", true).Write(valid);
    for (int round = 0; round < 20000; ++round) {
        Bytes noise(random() % 64);
        for (std::uint8_t& byte : noise)
            byte = static_cast<std::uint8_t>(random() % (round % 2 == 0 ? 12 : 256));
        ReadToTheEnd(noise);
        Bytes damaged = valid.Bytes();
        for (int flips = 0; flips < 3; ++flips)
            damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
        ReadToTheEnd(damaged);
    }
}

}  // namespace
}  // namespace Metrics
