#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <latch>
#include <thread>
#include <vector>

namespace Metrics::Testing {

/// Threads that do the same again and again, each with its number, until the vector goes.
inline std::vector<std::jthread> Repeat(unsigned size, const std::function<void(unsigned)>& work) {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < size; ++i) {
        threads.emplace_back([work, i](const std::stop_token& stop) {
            while (!stop.stop_requested()) work(i);
        });
    }
    return threads;
}

/// Threads that do something once, at the same time. Returns when all have.
inline void AtOnce(int size, const std::function<void(int)>& work) {
    std::latch together(size);
    std::vector<std::jthread> threads;
    for (int i = 0; i < size; ++i) {
        threads.emplace_back([&, i] {
            together.arrive_and_wait();
            work(i);
        });
    }
}

/// Holds whoever comes until it is opened, and tells that somebody came. It makes a "slow" callback that is
/// as slow as the test needs, whatever the machine does. It goes only when everybody has passed.
class Gate {
  public:
    ~Gate() {
        while (inside_ != 0) Pause();
    }
    void Pass() {
        ++inside_;
        reached_ = true;
        while (!open_) Pause();
        --inside_;
    }
    void Open() { open_ = true; }
    void WaitForSomebody() {
        while (!reached_) Pause();
    }

  private:
    static void Pause() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }

    std::atomic<int> inside_{0};
    std::atomic<bool> open_{false};
    std::atomic<bool> reached_{false};
};

}  // namespace Metrics::Testing
