#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

bool CanLockOnAnotherThread(RecursiveMutex& mutex) {
    bool locked = false;
    std::thread([&] {
        const std::unique_lock lock(mutex, std::try_to_lock);
        locked = lock.owns_lock();
    }).join();
    return locked;
}

}  // namespace

TEST(RecursiveMutexTest, IsFreeForOthersAfterItsLastUnlock) {
    RecursiveMutex mutex;
    {
        const std::lock_guard outer(mutex);
        {
            const std::lock_guard inner(mutex);
            EXPECT_FALSE(CanLockOnAnotherThread(mutex));
        }
        EXPECT_FALSE(CanLockOnAnotherThread(mutex));
    }
    EXPECT_TRUE(CanLockOnAnotherThread(mutex));
}

}  // namespace Metrics::platform
