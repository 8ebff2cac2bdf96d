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
    std::size_t Size() const { return open_.size(); }

    void Open(const MetricsEvent& event) { open_.push_back(Key(event)); }
    // Ends the scope that the event closes. Returns how many elements that ended: 0 when it is not open.
    std::size_t Close(const MetricsEvent& event) {
        if (open_.empty() || !(open_.back() == Key(event))) [[unlikely]]
            return CloseFurtherOut(Key(event));
        open_.pop_back();
        return 1;
    }
    // Ends what a context has open on top. Returns how many elements that were.
    std::size_t Leave(std::uint64_t context) {
        const std::size_t before = Size();
        while (!open_.empty() && open_.back().context == context) open_.pop_back();
        return before - Size();
    }

    void Clear() { open_.clear(); }

  private:
    struct Element {
        explicit Element(std::uint64_t id, std::uint32_t number) : context(id), sequence(number) {}
        bool operator==(const Element&) const = default;

        std::uint64_t context;
        std::uint32_t sequence;
    };

    static Element Key(const MetricsEvent& event) {
        return Element(ContextOf(event), event.SequenceNumber());
    }
    std::size_t CloseFurtherOut(const Element& element);

    std::vector<Element> open_;
};

}  // namespace Metrics::detail
