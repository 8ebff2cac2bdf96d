#pragma once

#include <condition_variable>
#include <mutex>

namespace Metrics::Testing {

/// Holds whoever comes until it is opened, and tells that somebody came. It makes a "slow" callback that is
/// as slow as the test needs, whatever the machine does. It goes only when everybody has passed.
class Gate {
  public:
    ~Gate() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return inside_ == 0; });
    }

    void Pass() {
        std::unique_lock lock(mutex_);
        ++inside_;
        reached_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
        --inside_;
        changed_.notify_all();
    }
    void Open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void WaitForSomebody() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return reached_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int inside_ = 0;
    bool open_ = false;
    bool reached_ = false;
};

}  // namespace Metrics::Testing
