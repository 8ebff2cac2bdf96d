#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "metrics/output/ElementStack.h"
#include "metrics/output/EventFifo.h"
#include "metrics/output/EventStack.h"

namespace Metrics::detail {

// The elements that are open in what was written of a root, with what it takes to open them again, so that
// its stream can be cut into parts: all of them are closed, and when more comes they are opened once more
// with their attributes and `part`, the number of the piece of that element.
//
// `Emit` is called with each event that is to be written.
class PartStack {
  public:
    // Takes note of what is written as it is. Only while the stream is not cut. Most scopes close a few
    // events after they opened, with nothing but values in between: of those only the attributes are seen.
    void Follow(std::span<const MetricsEvent> events) {
        while (!events.empty()) {
            const std::size_t leaf = LeafAtFront(events);
            leaf != 0 ? DropWaiting() : Follow(events.front());
            events = events.subspan(leaf != 0 ? leaf : 1);
        }
    }
    // Writes an event, whether the stream is cut or not.
    template <class Emit>
    void Write(const MetricsEvent& event, Emit emit) {
        if (isCut_) return WriteCut(event, emit);
        Follow(event);
        emit(event);
    }
    // The same for an opening or an attribute that `FirstParts` marked.
    template <class Emit>
    void WriteMarked(const MetricsEvent& event, Emit emit);

    template <class Emit>
    void Cut(Emit emit);
    bool IsCut() const { return isCut_; }
    // Nothing is open, and no attribute waits for what opens next.
    bool Empty() const { return kept_.Size() == 0; }

    // Ends what a context has open, when the others go on. For a stream that is not cut.
    template <class Emit>
    void CloseOf(std::uint64_t context, Emit emit);
    // The same for a stream that is cut, where nothing is to be written for that.
    void Forget(std::uint64_t context) { Drop(elements_.FirstOf(context)); }
    // From now on the stream goes on elsewhere, where none of its elements is open yet.
    void StartElsewhere() { isCut_ = !Empty(); }

    // Of events that are to be written before the next cut: the indices of the openings of elements that will
    // be cut, and of their attributes that are called `part`. Ascending.
    std::vector<std::size_t> FirstParts(const EventFifo& events) const;

    void Clear();

  private:
    static constexpr std::size_t kMostAttributes = 4096;  // of one element

    // How many events a scope without inner elements takes that opens and closes at the front; 0 if none
    // does.
    static std::size_t LeafAtFront(std::span<const MetricsEvent> events) {
        const MetricsEvent& opening = events.front();
        if (opening.Type() != MetricsEventType::ScopeOpen) return 0;
        std::size_t at = 1;
        while (at < events.size() && events[at].Type() == MetricsEventType::ScopeValue) ++at;
        const bool closes = at < events.size() && events[at].Type() == MetricsEventType::ScopeClose &&
                            events[at].SequenceNumber() == opening.SequenceNumber() &&
                            ContextOf(events[at]) == ContextOf(opening);
        return closes ? at + 1 : 0;
    }
    void Follow(const MetricsEvent& event) {
        switch (event.Type()) {
            case MetricsEventType::NameValue:
                if (kept_.Size() - waiting_ < kMostAttributes) kept_.Push(event);
                return;
            case MetricsEventType::ScopeOpen:
                elements_.Open(event, 1, waiting_);
                kept_.Push(event);
                waiting_ = kept_.Size();
                return;
            case MetricsEventType::ScopeClose:
                return elements_.ClosesInnermost(event) ? DropInnermost() : Drop(elements_.Find(event));
            case MetricsEventType::ContextClose: return Leave(ContextOf(event));
            case MetricsEventType::DemuxSynthesized: return Drop(elements_.FirstOf(ContextOf(event)));
            default: return;
        }
    }
    // Attributes go on waiting when a context closes without scopes.
    void Leave(std::uint64_t context) {
        const std::size_t first = elements_.FirstOf(context);
        if (first != elements_.Size()) Drop(first);
    }
    // Forgets the elements from this one on, and the attributes that wait for one.
    void Drop(std::size_t from) {
        if (from != elements_.Size()) {
            waiting_ = elements_[from].first;
            elements_.EndFrom(from);
        }
        DropWaiting();
    }
    void DropInnermost() {
        waiting_ = elements_.Innermost().first;
        elements_.EndInnermost();
        DropWaiting();
    }
    void DropWaiting() {
        kept_.Truncate(waiting_);
        isCut_ = isCut_ && !Empty();
    }
    std::size_t EndOf(std::size_t element) const {
        return element + 1 < elements_.Size() ? elements_[element + 1].first : waiting_;
    }
    const MetricsEvent& OpeningOf(std::size_t element) const { return kept_[EndOf(element) - 1]; }

    template <class Emit>
    void WriteCut(const MetricsEvent& event, Emit emit);
    template <class Emit>
    void OpenAgain(Emit emit);
    void SetOwnPartsAside(std::size_t end);

    ElementStack elements_;    // with the number of the part, and where what is kept of each begins
    EventStack kept_;          // their attributes and openings, then the attributes of the next one
    std::size_t waiting_ = 0;  // where the latter begin
    bool isCut_ = false;
};

// An attribute of the element that `opening` opens: the number of its part.
MetricsEvent PartAttribute(const MetricsEvent& opening, std::int64_t part);
MetricsEvent Closing(const MetricsEvent& opening);
// Whether the name of an attribute has to give way to that of the part's number; and the attribute with
// another.
bool IsCalledPart(const MetricsEvent& attribute);
MetricsEvent SetAside(const MetricsEvent& attribute);

template <class Emit>
void PartStack::WriteMarked(const MetricsEvent& event, Emit emit) {
    if (event.Type() == MetricsEventType::NameValue) return Write(SetAside(event), emit);
    SetOwnPartsAside(kept_.Size());
    if (isCut_) OpenAgain(emit);
    emit(PartAttribute(event, 1));
    Write(event, emit);
}

template <class Emit>
void PartStack::Cut(Emit emit) {
    if (isCut_) return;
    for (std::size_t element = elements_.Size(); element != 0; --element)
        emit(Closing(OpeningOf(element - 1)));
    isCut_ = !Empty();
}

template <class Emit>
void PartStack::CloseOf(std::uint64_t context, Emit emit) {
    const std::size_t first = elements_.FirstOf(context);
    for (std::size_t element = elements_.Size(); element != first; --element)
        emit(Closing(OpeningOf(element - 1)));
    Drop(first);
}

// Nothing is opened only to be closed.
template <class Emit>
void PartStack::WriteCut(const MetricsEvent& event, Emit emit) {
    switch (event.Type()) {
        case MetricsEventType::ScopeClose: {
            const std::size_t ended = elements_.Find(event);
            const bool isOpen = ended != elements_.Size();
            Drop(ended);
            if (!isOpen) emit(event);
            return;
        }
        case MetricsEventType::DemuxSynthesized:
            if (event.param1.AsInt64() > 0) OpenAgain(emit);
            break;
        case MetricsEventType::NameValue:
        case MetricsEventType::ScopeOpen:
        case MetricsEventType::ScopeValue: OpenAgain(emit); break;
        default: break;
    }
    Follow(event);
    emit(event);
}

template <class Emit>
void PartStack::OpenAgain(Emit emit) {
    SetOwnPartsAside(waiting_);
    isCut_ = false;
    for (std::size_t element = 0; element < elements_.Size(); ++element) {
        const std::size_t opening = EndOf(element) - 1;
        for (std::size_t at = elements_[element].first; at < opening; ++at) emit(kept_[at]);
        emit(PartAttribute(kept_[opening], ++elements_[element].part));
        emit(kept_[opening]);
    }
    for (std::size_t at = waiting_; at < kept_.Size(); ++at) emit(kept_[at]);
}

}  // namespace Metrics::detail
