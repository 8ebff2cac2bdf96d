#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "metrics/output/EventKind.h"

namespace Metrics::detail {

// Which scopes are open in a stream of events in nested order, and what a closing ends.
//
// A scope is known by its context and the sequence number that its closing repeats. Whoever closes ends what
// is open inside as well. The scopes of a context lie together on top while it is its turn, for its children
// are over by then; so nothing but scopes of the same context is ever ended along with one.
class ElementStack {
  public:
    struct Element {
        std::uint64_t context;
        std::uint32_t sequence;
        std::uint32_t part = 0;  // this and the next are for who cuts the stream, see PartStack
        std::size_t first = 0;
    };

    std::size_t Size() const { return open_.size(); }
    Element& operator[](std::size_t index) { return open_[index]; }
    const Element& operator[](std::size_t index) const { return open_[index]; }

    void Open(const MetricsEvent& event, std::uint32_t part = 0, std::size_t first = 0) {
        open_.push_back({ContextOf(event), event.SequenceNumber(), part, first});
    }
    // Whether the event closes the innermost element.
    bool ClosesInnermost(const MetricsEvent& event) const {
        return !open_.empty() && open_.back().sequence == event.SequenceNumber() &&
               open_.back().context == ContextOf(event);
    }
    // The element that the event closes; all from there on end with it. Size() when it is not open.
    std::size_t Find(const MetricsEvent& event) const {
        return ClosesInnermost(event) ? open_.size() - 1 : FindFurtherOut(event);
    }
    // The first of the elements on top that are of a context; Size() when none is.
    std::size_t FirstOf(std::uint64_t context) const {
        std::size_t at = open_.size();
        while (at != 0 && open_[at - 1].context == context) --at;
        return at;
    }
    // Ends all elements from this one on. Returns how many.
    std::size_t EndFrom(std::size_t index) {
        const std::size_t ended = open_.size() - index;
        open_.erase(open_.begin() + static_cast<std::ptrdiff_t>(index), open_.end());
        return ended;
    }
    const Element& Innermost() const { return open_.back(); }
    void EndInnermost() { open_.pop_back(); }

  private:
    std::size_t FindFurtherOut(const MetricsEvent& event) const;

    std::vector<Element> open_;
};

}  // namespace Metrics::detail
