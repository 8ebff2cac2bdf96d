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

using Bytes = std::vector<std::uint8_t>;

Bytes Buffer(const std::vector<MetricsEvent>& events) {
    MetricsValueBuffer buffer;
    buffer.AppendHeader({.eventCount = static_cast<std::uint32_t>(events.size())});
    for (const MetricsEvent& event : events) event.Write(buffer);
    return buffer.Bytes();
}

class RemoteEventsTest : public RunningTest {
  protected:
    void Send(const Bytes& bytes, const std::string& error = "") {
        std::string found;
        try {
            Manager().MergeRemoteEvents(std::make_shared<MetricsValueBuffer>(bytes));
        } catch (const MetricsBufferError& damage) {
            found = damage.what();
        }
        EXPECT_EQ(found, error);
    }
    Lines Merge(const Bytes& bytes, const std::string& error = "") {
        Send(bytes, error);
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
    // Another call, other ids; and none while nothing is collected.
    EXPECT_EQ(Merge(Buffer({events[0]})), Lines{"@0 1 0>4"});
    Manager().SetState(MetricsManager::Collecting, false);
    Send(Buffer({events[0]}));
    Manager().SetState(MetricsManager::Collecting, true);
    EXPECT_EQ(TakeLines(), Lines{"1 0>0"});
}

TEST_F(RemoteEventsTest, WhatBelongedToNoContextAndWhatWasNotCreatedJoinsTheCurrentOne) {
    Context current(0, Context::Create(true));
    Recorded().Take();
    EXPECT_EQ(Merge(Buffer({Event(Type::ScopeOpen, 0, "work"), Event(Type::ContextCreate, 0, 0, 7)})),
              (Lines{"@1 6 work", "@1 1 1>2"}));
    // Ids are given in the order of the fields: context, parent, own.
    EXPECT_EQ(Merge(Buffer({Event(Type::ContextConstruct, 0, 8, 9)})), (Lines{"@1 1 1>4", "@1 2 3>4"}));
    // A creation that comes too late is left out.
    EXPECT_EQ(Merge(Buffer({Event(Type::ContextConstruct, 0, 0, 9), Event(Type::ContextCreate, 0, 0, 9)})),
              (Lines{"@1 1 1>5", "@1 2 1>5"}));
}

// Readers go on by the low byte of a text's length, so that of a long text they would land inside it, here
// among what would be events.
TEST_F(RemoteEventsTest, NothingInATextIsReadAsAnEvent) {
    const std::string value = "\x0A\x1D\x11\x11\x11\x11\x11\x11\x11";
    std::string text;
    while (text.size() < 1000) text += value;
    for (std::size_t size = 240; size < 800; ++size) {
        const std::string narrow = text.substr(text.size() - size);
        const std::wstring wide(narrow.begin(), narrow.end());
        for (const MetricsValue& evil : {MetricsValue(narrow), MetricsValue(wide.c_str())}) {
            Send(Buffer({Event(Type::NameValue, 5, "k", evil), Event(Type::NameValue, 5, evil, 1),
                         Event(Type::ScopeOpen, 5, "last")}));
            const auto events = Recorded().Take();
            ASSERT_EQ(events.size(), 3U) << size;
            EXPECT_EQ(events[2].header, Event(Type::ScopeOpen, 5).header);
            EXPECT_EQ(events[2].timestamp, Event(Type::ScopeOpen, 5).timestamp);
            EXPECT_EQ(events[0].param2, narrow.substr(0, 254));
            EXPECT_EQ(events[1].param1, narrow.substr(0, 254));
            EXPECT_EQ(events[1].param2, 1);
            EXPECT_EQ(events[2].param1, "last");
        }
    }
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

TEST_F(RemoteEventsTest, OfADamagedBufferWhatWasDecodedBeforeStands) {
    Manager().MergeRemoteEvents(nullptr);
    EXPECT_EQ(Merge(Bytes(15, 1)), Lines{});
    EXPECT_EQ(Merge(Buffer({})), Lines{});
    // Four thousand million events in twenty bytes.
    Bytes many = Buffer({});
    std::fill_n(many.begin() + 8, 4, std::uint8_t{0xFF});
    many.resize(20);
    EXPECT_EQ(Merge(many, kExhausted), Lines{});

    const MetricsEvent first = Event(Type::ScopeOpen, 0, "work");
    const Bytes whole =
        Buffer({first, Event(Type::ContextConstruct, 4, "text", 4), Event(Type::NameValue, 4, L"w", 1.5)});
    for (std::size_t size = 16; size < whole.size(); ++size) {
        Lines lines = Merge(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)), kExhausted);
        lines.resize(1);
        EXPECT_EQ(lines[0], size < Buffer({first}).size() ? "" : "@0 6 work");
    }
    Bytes invalid = whole;
    invalid[16] = 5;
    EXPECT_EQ(Merge(invalid, "MetricsValueBuffer: Invalid metrics value"), Lines{});
}

}  // namespace
}  // namespace Metrics::Testing
