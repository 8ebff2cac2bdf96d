#include <gtest/gtest.h>

#include <atomic>
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
    }).join();
}

TEST(ThreadTest, ALongNameIsNoError) {
    std::thread([] { SetCurrentThreadName("a name that no system of ours can hold in full"); }).join();
}

TEST(ThreadTest, AValueEndsWithItsThreadOnceAndForAll) {
    struct Ends {
        int count = 0;
        bool wasGone = false;
        bool couldBeSet = true;
    };
    const auto end = [](void* value) {
        auto& ends = *static_cast<Ends*>(value);
        ++ends.count;
        ends.wasGone = ThreadValue() == nullptr;
        ends.couldBeSet = SetThreadValue(value, [](void* again) { ++static_cast<Ends*>(again)->count; });
    };
    Ends ends;
    std::thread([&] {
        EXPECT_EQ(ThreadValue(), nullptr);
        ASSERT_TRUE(SetThreadValue(&ends, end));
        EXPECT_EQ(ThreadValue(), &ends);
        std::thread([] { EXPECT_EQ(ThreadValue(), nullptr); }).join();
        EXPECT_EQ(ends.count, 0);
    }).join();
    EXPECT_EQ(ends.count, 1);
    EXPECT_TRUE(ends.wasGone);
    EXPECT_FALSE(ends.couldBeSet);
}

TEST(ThreadTest, AHandleToldFromItsThreadsEnd) {
    EXPECT_FALSE(ThreadHandle().IsAlive());
    EXPECT_TRUE(ThreadHandle::Current().IsAlive());

    ThreadHandle handle;
    std::atomic<bool> named = false;
    std::atomic<bool> mayEnd = false;
    std::thread thread([&] {
        handle = ThreadHandle::Current();
        named = true;
        while (!mayEnd) std::this_thread::yield();
    });
    while (!named) std::this_thread::yield();
    EXPECT_TRUE(handle.IsAlive());
    mayEnd = true;
    thread.join();
    EXPECT_FALSE(ThreadHandle(handle).IsAlive());
}

}  // namespace Metrics::platform
