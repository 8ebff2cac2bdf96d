#include "metrics/MetricsEvent.h"

#include <gtest/gtest.h>

#include "metrics/MetricsValueBuffer.h"

namespace Metrics {
namespace {

TEST(MetricsEvent, HeaderPacksTypeComponentAndSequence) {
    EXPECT_EQ(MetricsEvent::PackHeader(MetricsEventType::ScopeOpen, 0x1003, 7), 0x0000000700300019U);
    MetricsEvent event(Opaque64(MetricsEvent::PackHeader(MetricsEventType::ScopeOpen, 2, 0xFFFFFFFF)), 5,
                       MetricsDateTime(1), "name", 2);
    EXPECT_EQ(event.contextId, 5);
    event.SetType(MetricsEventType::StateChanged);
    EXPECT_EQ(event.Type(), MetricsEventType::StateChanged);
    EXPECT_EQ(event.ComponentId(), 2U);
    EXPECT_EQ(event.SequenceNumber(), 0xFFFFFFFFU);
    EXPECT_EQ(event.header.Kind(), MetricsValueType::Opaque64);
    EXPECT_EQ(event.header.AsUInt64() & 3, 1U);
}

TEST(MetricsEvent, WritesAndReadsItsFiveFields) {
    MetricsValueBuffer buffer;
    EXPECT_EQ(MetricsEvent().Write(buffer), 45U);
    const MetricsEvent written(Opaque64(1), 5, MetricsDateTime(1), "name", true);
    const unsigned long size = written.Write(buffer);
    MetricsEvent read(Opaque64(9), 9, 9, 9, 9);
    EXPECT_EQ(read.Read(buffer), 45U);
    EXPECT_EQ(read.header, MetricsValue());
    EXPECT_EQ(read.Read(buffer), size);
    EXPECT_EQ(read.timestamp, written.timestamp);
    EXPECT_EQ(read.param1, written.param1);
    EXPECT_EQ(read.param2, written.param2);
}

TEST(MetricsEvent, DamageLeavesTheFieldsFromThereOnAlone) {
    MetricsValueBuffer whole;
    MetricsEvent(Opaque64(1), 5, MetricsDateTime(1), "name", 2).Write(whole);
    std::vector<std::uint8_t> bytes(whole.Bytes().begin(), whole.Bytes().begin() + 20);
    MetricsEvent read(Opaque64(9), 9, 9, 9, 9);
    EXPECT_THROW(read.Read(MetricsValueBuffer(bytes)), MetricsBufferError);
    EXPECT_EQ(read.contextId, 5);
    EXPECT_EQ(read.timestamp, 9);
}

}  // namespace
}  // namespace Metrics
