#include <gtest/gtest.h>

#include <thread>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

TEST(ThreadTest, EachThreadHasItsIdAndAllHaveOneProcess) {
    const std::uint32_t threadId = CurrentThreadId();
    const std::uint32_t processId = CurrentProcessId();
    EXPECT_NE(threadId, 0u);
    EXPECT_EQ(CurrentThreadId(), threadId);
    std::thread([=] {
        EXPECT_NE(CurrentThreadId(), threadId);
        EXPECT_EQ(CurrentProcessId(), processId);
        SetCurrentThreadName("a name that no system of ours can hold in full");
    }).join();
}

TEST(ThreadTest, AValueEndsWithItsThreadOnceAndForAll) {
    static int ended = 0;
    const auto end = [](void* value) {
        EXPECT_EQ(value, &ended);
        EXPECT_EQ(ThreadValue(), nullptr);
        EXPECT_FALSE(SetThreadValue(value, [](void*) { ++ended; }));
        ++ended;
    };
    std::thread([&] {
        EXPECT_EQ(ThreadValue(), nullptr);
        ASSERT_TRUE(SetThreadValue(&ended, end));
        EXPECT_EQ(ThreadValue(), &ended);
        std::thread([] { EXPECT_EQ(ThreadValue(), nullptr); }).join();
        EXPECT_EQ(ended, 0);
    }).join();
    EXPECT_EQ(ended, 1);
}

TEST(ThreadTest, AHandleToldFromItsThreadsEnd) {
    EXPECT_FALSE(ThreadHandle().IsAlive());
    const ThreadHandle living = ThreadHandle::Current();
    ThreadHandle ended;
    std::thread([&] {
        EXPECT_TRUE(living.IsAlive());
        ended = ThreadHandle::Current();
        EXPECT_TRUE(ended.IsAlive());
    }).join();
    EXPECT_FALSE(ThreadHandle(ended).IsAlive());
}

}  // namespace Metrics::platform
