#pragma once

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
                if (const std::size_t ended = elements_.Close(event); ended != 1) [[unlikely]]
                    return WriteClosings(event, ended, sink);
                break;
            case MetricsEventType::ContextClose:
                if (const std::size_t ended = elements_.Leave(ContextOf(event)); ended != 0) [[unlikely]]
                    WriteClosings(event, ended, sink);
                break;
            case MetricsEventType::DemuxSynthesized: return sink.Write(Forced(event));
            default: break;
        }
        sink.Write(event);
    }

    void Clear() { elements_.Clear(); }

  private:
    template <class Sink>
    void WriteClosings(const MetricsEvent& cause, std::size_t ended, Sink& sink) {
        if (ended == 0) return sink.Write(ForceNothing());
        if (misnested_ != nullptr) *misnested_ = true;
        MetricsEvent closing = cause;
        closing.SetType(MetricsEventType::ScopeClose);
        for (; ended != 0; --ended) sink.Write(closing);
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
