#pragma once

#include <atomic>

namespace Metrics::detail {

/// Something that there is one of in a process: made at first use, never destroyed, because marks come until
/// the very end, and started afresh in the child of a fork, where a thread that stayed in the parent may hold
/// its lock for ever. To be a static, `constinit`.
template <class T>
class OnePerProcess {
  public:
    constexpr OnePerProcess() = default;

    /// Throws `std::bad_alloc` at first use.
    T& Get() {
        if (Holder* holder = current_.load(std::memory_order_acquire)) return holder->value;
        return Make();
    }

    /// Null before the first use.
    T* IfMade() const {
        Holder* holder = current_.load(std::memory_order_acquire);
        return holder != nullptr ? &holder->value : nullptr;
    }

    /// For the child of a fork. The old one is kept as it is, where a leak checker finds what it holds.
    void StartOverInChild() {
        if (Holder* holder = current_.exchange(nullptr)) {
            holder->before = old_;
            old_ = holder;
        }
    }

  private:
    struct Holder {
        T value;
        Holder* before = nullptr;
    };

    // Threads that race for the first use all make one, and the first one stays. No lock: see above.
    T& Make() {
        auto* fresh = new Holder;
        Holder* first = nullptr;
        if (current_.compare_exchange_strong(first, fresh)) return fresh->value;
        delete fresh;
        return first->value;
    }

    std::atomic<Holder*> current_{nullptr};
    Holder* old_ = nullptr;
};

}  // namespace Metrics::detail
