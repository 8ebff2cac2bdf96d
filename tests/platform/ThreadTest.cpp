#include <gtest/gtest.h>

#include <thread>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

TEST(ThreadTest, ThreadsOfAProcessAreToldApartAlsoWhenTheyHaveEnded) {
    EXPECT_FALSE(ThreadHandle().IsAlive());
    const std::uint32_t threadId = CurrentThreadId();
    const std::uint32_t processId = CurrentProcessId();
    EXPECT_NE(threadId, 0u);
    EXPECT_EQ(CurrentThreadId(), threadId);
    const ThreadHandle living = ThreadHandle::Current();
    ThreadHandle ended;
    std::thread([&] {
        EXPECT_NE(CurrentThreadId(), threadId);
        EXPECT_EQ(CurrentProcessId(), processId);
        SetCurrentThreadName("a name that no system of ours can hold in full");
        EXPECT_TRUE(living.IsAlive());
        ended = ThreadHandle::Current();
        EXPECT_TRUE(ended.IsAlive());
    }).join();
    // Its last steps in the system come after the join.
    const ThreadHandle copy = ended;
    while (copy.IsAlive()) std::this_thread::yield();
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

TEST(ThreadTest, ProcessorTimeCountsWorkOfThisThreadOnly) {
    const double before = ThreadProcessorTime().total;
    std::thread([] {
        // Without end when its own work doesn't count.
        for (ProcessorTime used; used.total < 0.1; used = ThreadProcessorTime()) {
            EXPECT_LE(used.user, used.total);
        }
    }).join();
    EXPECT_LT(ThreadProcessorTime().total - before, 0.09);
}

}  // namespace Metrics::platform
