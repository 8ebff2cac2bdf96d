#pragma once

#include <cstddef>
#include <utility>

#include "metrics/MetricsEvent.h"
#include "metrics/output/ElementStack.h"
#include "metrics/output/IWriter.h"

namespace Metrics::detail {

// Ends the attributes that wait for a scope, and nothing else.
MetricsEvent ForceNothing();

// Hands events on to a sink that makes elements of scopes, so that each element which it is told to end is
// the innermost one. Scopes and contexts may have closed in any order.
//
// A sink is any class with a Write for events. It takes a closing as the end of its innermost element, and a
// forced closure of depth 0 as the end of the attributes that wait for a scope.
class Nesting {
  public:
    // `*misnested`, if any, is set when something closes before what is open inside.
    explicit Nesting(bool* misnested) : misnested_(misnested) {}

    template <class Sink>
    void Write(const MetricsEvent& event, Sink& sink) {
        switch (event.Type()) {
            case MetricsEventType::ScopeOpen: elements_.Open(event); break;
            case MetricsEventType::ScopeClose:
                if (!elements_.ClosesInnermost(event)) [[unlikely]]
                    return WriteOther(event, sink);
                elements_.EndInnermost();
                break;
            case MetricsEventType::ContextClose:
                if (elements_.FirstOf(ContextOf(event)) == elements_.Size()) break;
                return WriteOther(event, sink);
            case MetricsEventType::DemuxSynthesized: return WriteOther(event, sink);
            default: break;
        }
        sink.Write(event);
    }

    void Clear() { elements_.EndFrom(0); }

  private:
    // What the sink may not have as it is.
    template <class Sink>
    [[gnu::noinline]] void WriteOther(const MetricsEvent& event, Sink& sink) {
        if (event.Type() == MetricsEventType::DemuxSynthesized) return sink.Write(Forced(event));
        const bool isScope = event.Type() == MetricsEventType::ScopeClose;
        std::size_t ended =
            elements_.EndFrom(isScope ? elements_.Find(event) : elements_.FirstOf(ContextOf(event)));
        if (ended == 0) return sink.Write(ForceNothing());
        if (misnested_ != nullptr) *misnested_ = true;
        MetricsEvent closing = event;
        closing.SetType(MetricsEventType::ScopeClose);
        for (; ended != 0; --ended) sink.Write(closing);
        if (!isScope) sink.Write(event);
    }
    MetricsEvent Forced(const MetricsEvent& event);

    ElementStack elements_;
    bool* misnested_;
};

// A writer behind a Nesting of its own.
template <class Writer>
class NestedWriter final : public IWriter {
  public:
    template <class... Arguments>
    explicit NestedWriter(bool* misnested, Arguments&&... arguments)
        : nesting_(misnested), writer_(std::forward<Arguments>(arguments)...) {}

    void Begin() override { writer_.Begin(); }
    void Write(const MetricsEvent& event) override { nesting_.Write(event, writer_); }
    void Interrupt() override { writer_.Write(ForceNothing()); }
    void Flush() override { writer_.Flush(); }
    void End() override { writer_.End(); }

  private:
    Nesting nesting_;
    Writer writer_;
};

}  // namespace Metrics::detail
