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
