#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "metrics/Export.h"

namespace Metrics {

namespace detail {
class ContextStack;
}

/// The stack of open scopes of a context and the processor time they used. The clocks are read by the
/// caller, and only for scopes that are to be measured; the stack does the accounts. No figure is negative.
/// Not synchronised.
///
/// The library's own scopes count from a clock of their context, which runs only while a thread works for
/// the context. Of those the figures are their own also when they close in another order than that of a
/// stack.
class METRICS_API MetricsTimeStack {
  public:
    /// Processor time of a thread, in seconds.
    struct Times {
        double processor;  ///< User and system together.
        double user;       ///< The user part of it.
    };

    MetricsTimeStack() = default;

    /// A scope, for now one that is not measured.
    void Push() noexcept { ++size_; }
    /// Makes the top entry a measured one from the thread's times `start` on. Nothing on an empty stack.
    /// Throws std::bad_alloc; the entry is then as before.
    void Start(const Times& start);
    /// Removes the top entry. What a measured one used counts as used by a child of the entry below.
    /// Nothing on an empty stack.
    void Pop() noexcept {
        if (size_ != measuredTop_) {
            --size_;
        } else if (size_ != 0) {
            PopMeasured();
        }
    }

    /// Brings the figures of the top entry up to date with the thread's times `now`. Nothing when the stack
    /// is empty or the entry is not measured.
    void Update(const Times& now) noexcept;
    /// What passed between the push of the top entry and its last update; a pair of zeros when the stack is
    /// empty.
    const Times& Top() const noexcept;
    /// The same less what the entry's direct, measured, closed children used.
    Times TopExclusive() const noexcept;

    std::size_t Size() const noexcept { return size_; }
    /// Whether the top entry was started.
    bool IsMeasured() const noexcept { return size_ != 0 && size_ == measuredTop_; }

  private:
    friend class detail::ContextStack;

    struct Entry {
        std::uint64_t id;   // never 0
        std::size_t level;  // its place in the stack, counted from 1
        Times start;
        Times used{0, 0};
        Times children{0, 0};
    };

    struct Figures {
        Times used{0, 0};
        Times exclusive{0, 0};
    };
    /// What the entry that was started as number `id` used until `now`. From here on it is one that is not
    /// measured, wherever it stands. Zeros when there is none.
    Figures Stop(std::uint64_t id, const Times& now) noexcept;
    /// Removes the topmost entry that is not measured.
    void PopUnmeasured() noexcept;

    void PopMeasured() noexcept;
    void Remove(std::vector<Entry>::iterator entry) noexcept;

    // Most scopes are not measured; they are only counted.
    std::size_t size_ = 0;
    std::size_t measuredTop_ = 0;  // the level of the last entry of `measured_`, or 0
    std::vector<Entry> measured_;
    std::uint64_t lastId_ = 0;
};

}  // namespace Metrics
