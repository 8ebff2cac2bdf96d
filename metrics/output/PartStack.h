#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "metrics/output/ElementStack.h"
#include "metrics/output/EventFifo.h"

namespace Metrics::detail {

// The elements that are open in what was written of a root, with what it takes to open them again, so that
// its stream can be cut into parts: all of them are closed, and when more comes they are opened once more
// with their attributes and `part`, the number of the piece of that element.
//
// `Emit` is called with each event that is to be written.
class PartStack {
  public:
    // Takes note of what is written as it is. Only while the stream is not cut.
    void Follow(std::span<const MetricsEvent> events) {
        for (const MetricsEvent& event : events) Follow(event);
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
    bool Empty() const { return kept_.empty(); }

    // Ends what a context has open, when the others go on. For a stream that is not cut.
    template <class Emit>
    void CloseOf(std::uint64_t context, Emit emit);
    // The same for a stream that is cut, where nothing is to be written for that.
    void Forget(std::uint64_t context) { Drop(elements_.Leave(context)); }
    // From now on the stream goes on elsewhere, where none of its elements is open yet.
    void StartElsewhere() { isCut_ = !Empty(); }

    // Of events that are to be written before the next cut: the indices of the openings of elements that will
    // be cut, and of their attributes that are called `part`. Ascending.
    std::vector<std::size_t> FirstParts(const EventFifo& events) const;

    void Clear();

  private:
    static constexpr std::size_t kMostAttributes = 4096;  // of one element

    struct Open {
        std::size_t first;  // of its attributes in kept_; its opening follows them
        std::int64_t part;  // that is written, or was
    };

    void Follow(const MetricsEvent& event) {
        switch (event.Type()) {
            case MetricsEventType::NameValue:
                if (kept_.size() - waiting_ < kMostAttributes) kept_.push_back(event);
                return;
            case MetricsEventType::ScopeOpen:
                elements_.Open(event);
                open_.push_back({waiting_, 1});
                kept_.push_back(event);
                waiting_ = kept_.size();
                return;
            case MetricsEventType::ScopeClose: return Drop(elements_.Close(event));
            case MetricsEventType::ContextClose:
                if (const std::size_t ended = elements_.Leave(ContextOf(event)); ended != 0) Drop(ended);
                return;
            case MetricsEventType::DemuxSynthesized: return Drop(elements_.Leave(ContextOf(event)));
            default: return;
        }
    }
    // Forgets elements on top, and the attributes that wait for one.
    void Drop(std::size_t count) {
        if (count != 0) {
            waiting_ = open_[open_.size() - count].first;
            open_.resize(open_.size() - count);
        }
        if (waiting_ != kept_.size())
            kept_.erase(kept_.begin() + static_cast<std::ptrdiff_t>(waiting_), kept_.end());
        isCut_ = isCut_ && !kept_.empty();
    }
    std::size_t EndOf(std::size_t element) const {
        return element + 1 < open_.size() ? open_[element + 1].first : waiting_;
    }
    const MetricsEvent& OpeningOf(std::size_t element) const { return kept_[EndOf(element) - 1]; }

    template <class Emit>
    void WriteCut(const MetricsEvent& event, Emit emit);
    template <class Emit>
    void OpenAgain(Emit emit);
    void SetOwnPartsAside(std::size_t end);

    ElementStack elements_;
    std::vector<Open> open_;          // as many as elements_ has
    std::vector<MetricsEvent> kept_;  // their attributes and openings, then the attributes of the next one
    std::size_t waiting_ = 0;         // where the latter begin
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
    SetOwnPartsAside(kept_.size());
    if (isCut_) OpenAgain(emit);
    emit(PartAttribute(event, 1));
    Write(event, emit);
}

template <class Emit>
void PartStack::Cut(Emit emit) {
    if (isCut_) return;
    for (std::size_t element = open_.size(); element != 0; --element) emit(Closing(OpeningOf(element - 1)));
    isCut_ = !kept_.empty();
}

template <class Emit>
void PartStack::CloseOf(std::uint64_t context, Emit emit) {
    while (!open_.empty() && ContextOf(OpeningOf(open_.size() - 1)) == context) {
        const MetricsEvent closing = Closing(OpeningOf(open_.size() - 1));
        Follow(closing);
        emit(closing);
    }
    Drop(0);
}

// Nothing is opened only to be closed.
template <class Emit>
void PartStack::WriteCut(const MetricsEvent& event, Emit emit) {
    switch (event.Type()) {
        case MetricsEventType::ScopeClose: {
            const std::size_t ended = elements_.Close(event);
            Drop(ended);
            if (ended == 0) emit(event);
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
    for (std::size_t element = 0; element < open_.size(); ++element) {
        const std::size_t opening = EndOf(element) - 1;
        for (std::size_t at = open_[element].first; at < opening; ++at) emit(kept_[at]);
        emit(PartAttribute(kept_[opening], ++open_[element].part));
        emit(kept_[opening]);
    }
    for (std::size_t at = waiting_; at < kept_.size(); ++at) emit(kept_[at]);
}

}  // namespace Metrics::detail
