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

TEST(MetricsValueBuffer, WhatWasMovedFromIsEmptyAndCanBeFilled) {
    MetricsValueBuffer first;
    first.Append(1);
    first.Append(2);
    MetricsValue value;
    first.Extract(value);
    MetricsValueBuffer second(std::move(first));
    EXPECT_THROW(first.Extract(value), MetricsBufferError);
    first.Append(3);
    EXPECT_EQ(first.Extract(value), first.Bytes().size());
    first = std::move(second);
    EXPECT_THROW(second.Extract(value), MetricsBufferError);
    first.Extract(value);
    EXPECT_EQ(value, MetricsValue(2)) << "the cursor moves along";
    MetricsValueBuffer& same = first;
    first = std::move(same);
    EXPECT_EQ(first.Bytes().size(), 18U);
}

TEST(MetricsValueBuffer, EncodesEachKindAndDecodesItAgain) {
    const std::pair<MetricsValue, Bytes> cases[] = {
        {-2, {0, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {'a', {0, 'a', 0, 0, 0, 0, 0, 0, 0}},
        {UINT64_MAX, {0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {true, {1, 1}},
        {1.0, {2, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}},
        {1.0F, {2, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}},
        {MetricsDateTime(1), {3, 0, 0x98, 0x7F, 0x33, 0, 0, 0, 0}},
        {"ab", {4, 3, 0, 'a', 'b', 0}},
        {std::string("a"), {4, 2, 0, 'a', 0}},
        {std::string_view("ab").substr(1), {4, 2, 0, 'b', 0}},
        {MetricsValue::Ref(""), {4, 1, 0, 0}},
        {MetricsValue::Ref(L"w"), {4, 2, 0, 'w', 0}},
        {L"\u00E9\u20AC", {4, 3, 0, 0xE9, 0xAC, 0}},
        {FourCC("ABCD"), {8, 'D', 'C', 'B', 'A'}},
        {EightCC("ABCDEFGH"), {9, 'H', 'G', 'F', 'E', 'D', 'C', 'B', 'A'}},
        {Opaque64(UINT64_MAX - 1), {10, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
    };
    MetricsValueBuffer buffer;
    for (const auto& [value, bytes] : cases) {
        EXPECT_EQ(Encode(value), bytes);
        buffer.Append(value);
    }
    const MetricsValueBuffer copy = buffer;
    for (const auto& [value, bytes] : cases) {
        MetricsValue decoded = "old";
        EXPECT_EQ(copy.Extract(decoded), bytes.size());
        EXPECT_EQ(Encode(decoded), bytes);
    }
}

TEST(MetricsValueBuffer, LongTextsKeepTheirUnevenLengths) {
    const std::string text(300, 'x');
    MetricsValue decoded;
    EXPECT_EQ(MetricsValueBuffer(Encode(text)).Extract(decoded), 3U + 301 % 256);
    EXPECT_EQ(decoded, text);
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

TEST(MetricsEvent, WritesAndReadsItsFiveFieldsUpToDamage) {
    EXPECT_EQ(MetricsEvent::PackHeader(MetricsEventType::ScopeOpen, 0x1003, 7), 0x0000000700300019U);
    MetricsEvent written(MetricsEvent::PackHeader(MetricsEventType::ScopeOpen, 2, 0xFFFFFFFF), 5,
                         MetricsDateTime(1), "name", true);
    written.SetType(MetricsEventType::StateChanged);
    MetricsValueBuffer buffer, again;
    const unsigned long size = written.Write(buffer);
    MetricsEvent read(Opaque64(9), 9, 9, 9, 9);
    EXPECT_EQ(read.Read(buffer), size);
    EXPECT_EQ(read.Type(), MetricsEventType::StateChanged);
    EXPECT_EQ(read.ComponentId(), 2U);
    EXPECT_EQ(read.SequenceNumber(), 0xFFFFFFFFU);
    read.Write(again);
    EXPECT_EQ(again.Bytes(), buffer.Bytes());

    MetricsValueBuffer damaged;
    EXPECT_EQ(MetricsEvent().Write(damaged), 45U);
    EXPECT_THROW(read.Read(MetricsValueBuffer({damaged.Bytes().begin(), damaged.Bytes().begin() + 20})),
                 MetricsBufferError);
    EXPECT_EQ(read.contextId, 0);
    EXPECT_EQ(read.timestamp, MetricsDateTime(1));
}

TEST(MetricsEvent, CutsTextsThatReadersRefuse) {
    const std::string x(252, 'x');
    const std::pair<std::string, std::size_t> texts[] = {
        {x, 252},
        {x + "yz", 254},
        {x + "yz\xC3\xA9", 254},
        {x + "y\xE6\xB8\xAC", 253},
        {x + "\xF0\x9F\x98\x80", 252},
        {x + "\xC3\xA9\xF0\x9F\x98\x80", 254},
        {std::string(600, '\x80'), 254},
        {std::string(70000, 'z'), 254},
    };
    for (const auto& [text, kept] : texts) {
        const std::wstring wide(text.begin(), text.end());
        for (const MetricsValue& value : {MetricsValue(text), MetricsValue(wide.c_str())}) {
            MetricsValueBuffer buffer;
            const MetricsEvent written(1, 2, 3, value, 4);
            const unsigned long size = written.Write(buffer);
            EXPECT_EQ(size, buffer.Bytes().size());
            EXPECT_EQ(buffer.HasCutTexts(), kept < text.size());
            MetricsEvent read;
            EXPECT_EQ(read.Read(buffer), size);
            EXPECT_EQ(read.param1, text.substr(0, kept));
            EXPECT_EQ(read.param2, 4);
        }
    }
}

TEST(MetricsValueBuffer, AnyBytesEndInAnError) {
    std::mt19937 random(4711);
    MetricsValueBuffer valid;
    for (int i = 0; i < 4; ++i) MetricsEvent(Opaque64(1), 5, MetricsDateTime(1), "name", true).Write(valid);
    for (int round = 0; round < 20000; ++round) {
        Bytes noise(random() % 64);
        for (std::uint8_t& byte : noise)
            byte = static_cast<std::uint8_t>(random() % (round % 2 == 0 ? 12 : 256));
        Bytes damaged = valid.Bytes();
        for (int flips = 0; flips < 3; ++flips)
            damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
        for (const Bytes& bytes : {noise, damaged}) {
            const MetricsValueBuffer buffer(bytes);
            const auto readAll = [&] {
                for (MetricsEvent event;;) event.Read(buffer);  // takes bytes each time, so it must end
            };
            EXPECT_THROW(readAll(), MetricsBufferError);
        }
    }
}

}  // namespace
}  // namespace Metrics
