#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "metrics/Export.h"

namespace Metrics {

/// The stack of open scopes of a context and the processor time they used. The clocks are read by the
/// caller, and only for scopes that are to be measured; the stack does the accounts. Not synchronised. Only a
/// push beyond sixteen open scopes allocates, and may throw std::bad_alloc; the stack is then as before.
class METRICS_API MetricsTimeStack {
  public:
    /// Processor time of a thread, in seconds.
    struct Times {
        double processor;  ///< User and system together.
        double user;       ///< The user part of it.
    };

    MetricsTimeStack() = default;

    /// A scope, for now one that is not measured.
    void Push() {
        if (size_ < kInline) {
            inline_[size_++].measured = false;
        } else {
            Append({{0, 0}, {0, 0}, {0, 0}, false});
        }
    }
    /// Makes the top entry a measured one from the thread's times `start` on. Nothing on an empty stack.
    void Start(const Times& start) noexcept;
    /// Removes the top entry. What a measured one used counts as used by a child of the entry below.
    /// Nothing on an empty stack.
    void Pop() noexcept {
        if (size_ == 0) return;
        if (size_ <= kInline && !inline_[size_ - 1].measured) {
            --size_;
        } else {
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
    /// True when a push needs no memory.
    bool HasRoom() const noexcept { return size_ < kInline; }

  private:
    struct Entry {
        Times start;
        Times used;
        Times children;
        bool measured;
    };
    static constexpr std::size_t kInline = 16;

    bool IsMeasured() const noexcept { return size_ != 0 && At(size_ - 1).measured; }
    Entry& At(std::size_t index) noexcept {
        return index < kInline ? inline_[index] : overflow_[index - kInline];
    }
    const Entry& At(std::size_t index) const noexcept {
        return index < kInline ? inline_[index] : overflow_[index - kInline];
    }
    void Append(const Entry& entry);
    void PopMeasured() noexcept;

    // Scopes seldom nest deeper than this, so that most contexts never allocate for it. Entries at and above
    // size_ hold nothing; of one that is not measured only that is known.
    std::array<Entry, kInline> inline_;
    std::vector<Entry> overflow_;
    std::size_t size_ = 0;
};

}  // namespace Metrics
