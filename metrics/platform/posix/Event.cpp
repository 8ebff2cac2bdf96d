#include <chrono>
#include <condition_variable>
#include <mutex>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

// A set hands itself to a waiter at once instead of leaving a flag to be raced for: two sets of an auto-reset
// event with two waiters release both, and a manual-reset event that is cleared right after its set has still
// released all who waited.
struct Event::Native {
    explicit Native(bool isAutoReset) : autoReset(isAutoReset) {}

    const bool autoReset;
    std::mutex mutex;
    std::condition_variable released;
    bool set = false;
    std::uint64_t waiting = 0;
    std::uint64_t grants = 0;      // auto-reset: releases handed out that no waiter has taken yet
    std::uint64_t generation = 0;  // manual-reset: how often the event was set

    bool TakeSet() {
        const bool wasSet = set;
        if (autoReset) set = false;
        return wasSet;
    }

    bool TakeGrant() {
        if (grants == 0) return false;
        --grants;
        return true;
    }

    bool WaitReleased(std::unique_lock<std::mutex>& lock, int milliseconds) {
        const auto isReleased = [this, before = generation] {
            return autoReset ? grants > 0 : generation != before;
        };
        if (milliseconds < 0) {
            released.wait(lock, isReleased);
            return true;
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        return released.wait_until(lock, deadline, isReleased);
    }
};

Event::Event(bool autoReset) : native_(std::make_unique<Native>(autoReset)) {}

Event::~Event() = default;

void Event::Set() {
    const std::lock_guard lock(native_->mutex);
    if (!native_->autoReset) {
        native_->set = true;
        ++native_->generation;
        native_->released.notify_all();
    } else if (native_->waiting > native_->grants) {
        ++native_->grants;
        native_->released.notify_one();
    } else {
        native_->set = true;
    }
}

void Event::Reset() {
    const std::lock_guard lock(native_->mutex);
    native_->set = false;
}

bool Event::Wait(int milliseconds) {
    std::unique_lock lock(native_->mutex);
    if (native_->TakeSet()) return true;
    if (milliseconds == 0) return false;
    ++native_->waiting;
    const bool wasReleased = native_->WaitReleased(lock, milliseconds);
    --native_->waiting;
    return native_->autoReset ? native_->TakeGrant() : wasReleased;
}

}  // namespace Metrics::platform
