// Events of another process.
#include <gtest/gtest.h>

#include "metrics/Context.h"
#include "metrics/MetricsValueBuffer.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using Type = MetricsEventType;

MetricsEvent Event(Type type, std::uint64_t context, MetricsValue param1 = {}, MetricsValue param2 = {}) {
    return {Opaque64(MetricsEvent::PackHeader(type, 9, 77)), context, MetricsDateTime(123456),
            std::move(param1), std::move(param2)};
}

std::shared_ptr<MetricsValueBuffer> Buffer(const std::vector<MetricsEvent>& events, std::uint32_t promised) {
    auto buffer = std::make_shared<MetricsValueBuffer>();
    buffer->AppendHeader({.eventCount = promised});
    for (const MetricsEvent& event : events) event.Write(*buffer);
    return buffer;
}

std::shared_ptr<MetricsValueBuffer> Buffer(const std::vector<MetricsEvent>& events) {
    return Buffer(events, static_cast<std::uint32_t>(events.size()));
}

class RemoteEventsTest : public RunningTest {
  protected:
    Lines Merge(std::shared_ptr<MetricsValueBuffer> buffer) {
        Manager().MergeRemoteEvents(std::move(buffer));
        return Recorded().TakeLinesWithContext();
    }
    Lines MergeDamaged(std::shared_ptr<MetricsValueBuffer> buffer, const char* message) {
        try {
            Manager().MergeRemoteEvents(std::move(buffer));
            ADD_FAILURE() << "not found damaged";
        } catch (const MetricsBufferError& error) {
            EXPECT_STREQ(error.what(), message);
        }
        return Recorded().TakeLinesWithContext();
    }
};

constexpr const char* kExhausted = "MetricsValueBuffer: buffer unexpectedly exhausted";

TEST_F(RemoteEventsTest, ContextsGetIdsOfThisProcess) {
    Manager().GetNextContextId();
    const auto events =
        std::vector{Event(Type::ContextCreate, 0, 0, 40), Event(Type::ContextConstruct, 40, 0, 40),
                    Event(Type::ContextCreate, 40, 40, 41), Event(Type::ScopeOpen, 41, "work"),
                    Event(Type::NameValue, 40, "n", 40)};
    EXPECT_EQ(Merge(Buffer(events)), (Lines{"@0 1 0>2", "@2 2 0>2", "@2 1 2>3", "@3 6 work", "@2 11 n=40"}));
    // Another call, other ids.
    EXPECT_EQ(Merge(Buffer({events[0]})), Lines{"@0 1 0>4"});
}

TEST_F(RemoteEventsTest, WhatBelongedToNoContextJoinsTheCurrentOne) {
    Context current(0, Context::Create(true));
    Recorded().Take();
    EXPECT_EQ(Merge(Buffer({Event(Type::ScopeOpen, 0, "work"), Event(Type::ContextCreate, 0, 0, 7)})),
              (Lines{"@1 6 work", "@1 1 1>2"}));
}

TEST_F(RemoteEventsTest, AContextWithoutCreationIsCreatedHere) {
    Context current(0, Context::Create(true));
    Recorded().Take();
    // Ids are given in the order of the fields: context, parent, own.
    EXPECT_EQ(Merge(Buffer({Event(Type::ContextConstruct, 0, 8, 9)})), (Lines{"@1 1 1>3", "@1 2 2>3"}));
    // A creation that comes too late is left out.
    EXPECT_EQ(Merge(Buffer({Event(Type::ContextConstruct, 0, 0, 9), Event(Type::ContextCreate, 0, 0, 9)})),
              (Lines{"@1 1 1>4", "@1 2 1>4"}));
}

TEST_F(RemoteEventsTest, EverythingElseStaysAsItWas) {
    Manager().MergeRemoteEvents(Buffer({Event(Type::ScopeOpen, 5, L"wide", true)}));
    const auto events = Recorded().Take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].header, Event(Type::ScopeOpen, 0).header);
    EXPECT_EQ(events[0].timestamp, MetricsValue(MetricsDateTime(123456)));
    EXPECT_EQ(events[0].param1, MetricsValue("wide"));
    EXPECT_EQ(events[0].param2, MetricsValue(true));
}

TEST_F(RemoteEventsTest, MaskAndIdBaseOfTheOtherProcessReachThisOne) {
    Merge(Buffer({Event(Type::SetBitsAbsolute, 0, 0xF0), Event(Type::SetBits, 0, 0xF00),
                  Event(Type::ClearBits, 0, 0x10)}));
    EXPECT_EQ(Manager().GetBits(), 0xFE0U);
    Merge(Buffer({Event(Type::ContextIdBase, 0, 1000, 3)}));
    EXPECT_NE(Manager().GetState() & MetricsManager::IdBaseSet, 0U);
    EXPECT_EQ(Manager().GetNextContextId(), 1001U);
    Merge(Buffer({Event(Type::ContextIdBase, 0, 0, 0)}));
    EXPECT_EQ(Manager().GetState() & MetricsManager::IdBaseSet, 0U);
}

TEST_F(RemoteEventsTest, IdsAreZeroWhileNotCollecting) {
    Manager().SetState(MetricsManager::Collecting, false);
    Manager().MergeRemoteEvents(Buffer({Event(Type::ContextCreate, 0, 0, 40)}));
    Manager().SetState(MetricsManager::Collecting, true);
    EXPECT_EQ(TakeLines(), Lines{"1 0>0"});
}

TEST_F(RemoteEventsTest, HostileBuffers) {
    EXPECT_EQ(Merge(nullptr), Lines{});
    EXPECT_EQ(Merge(std::make_shared<MetricsValueBuffer>(std::vector<std::uint8_t>(15, 1))), Lines{});
    EXPECT_EQ(Merge(Buffer({}, 0)), Lines{});
    // Four thousand million events in twenty bytes.
    auto bytes = Buffer({}, 0xFFFFFFFF)->Bytes();
    bytes.resize(20);
    EXPECT_EQ(MergeDamaged(std::make_shared<MetricsValueBuffer>(bytes), kExhausted), Lines{});
    // What was decoded before the damage stands.
    EXPECT_EQ(MergeDamaged(Buffer({Event(Type::ScopeOpen, 0, "work")}, 2), kExhausted), Lines{"@0 6 work"});
    bytes = Buffer({Event(Type::ScopeOpen, 0)})->Bytes();
    bytes[16] = 5;
    MergeDamaged(std::make_shared<MetricsValueBuffer>(bytes), "MetricsValueBuffer: Invalid metrics value");
}

TEST_F(RemoteEventsTest, EveryCutOfABufferIsAnErrorAndNothingMore) {
    const auto whole =
        Buffer({Event(Type::ContextConstruct, 4, "text", 4), Event(Type::NameValue, 4, L"w", 1.5)});
    for (std::size_t size = 16; size < whole->Bytes().size(); ++size) {
        std::vector<std::uint8_t> cut(whole->Bytes().begin(),
                                      whole->Bytes().begin() + static_cast<long>(size));
        MergeDamaged(std::make_shared<MetricsValueBuffer>(cut), kExhausted);
    }
}

}  // namespace
}  // namespace Metrics::Testing
