#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <queue>
#include <utility>

namespace WordCount {

/// Carries items from some threads to others, in order and at most `capacity` at a time.
template <class Item>
class Channel {
  public:
    explicit Channel(std::size_t capacity) : capacity_(capacity) {}

    /// Waits for room. False, and the item is gone, when the channel is closed.
    bool Push(Item item) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return closed_ || items_.size() < capacity_; });
        if (closed_) return false;
        items_.push(std::move(item));
        changed_.notify_all();
        return true;
    }

    /// Waits for an item. None when the channel is closed and empty.
    std::optional<Item> Pop() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return closed_ || !items_.empty(); });
        if (items_.empty()) return std::nullopt;
        std::optional<Item> item(std::move(items_.front()));
        items_.pop();
        changed_.notify_all();
        return item;
    }

    void Close() {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

  private:
    const std::size_t capacity_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::queue<Item> items_;
    bool closed_ = false;
};

}  // namespace WordCount
