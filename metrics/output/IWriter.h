#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Metrics {

class MetricsEvent;
class MetricsValueBuffer;

// Turns the events of one target into bytes. All calls come under the output's lock, on the thread that
// opened the target or on the manager's worker. What a writer throws is an error of its output.
class IWriter {
  public:
    virtual ~IWriter() = default;

    // Once, when the target has been opened.
    virtual void Begin() = 0;
    // For each event of the target, in its final order. Must neither allocate nor write to the stream for
    // each event, but collect.
    virtual void Write(const MetricsEvent& event) = 0;
    // After the last batch of each cycle in which something was written: hands on what was collected.
    virtual void Flush() = 0;
    // Once, before the target goes; no Flush follows.
    virtual void End() = 0;

    // What a table of this writer is described by in a schema.ini; empty when it writes none.
    virtual std::string Schema() const { return {}; }

    // Tables only: what is written from here on is of this root, whose rows are made apart from those of
    // others; 0 for the roots that come one after the other. And: that root has ended.
    virtual void TurnTo(std::uint64_t) {}
    virtual void EndTable(std::uint64_t) {}

    // Something else comes in between: attributes that wait for a scope are dropped. They come again before
    // the scope does.
    virtual void Interrupt() {}

    // The finished buffer of a writer that fills one; it is handed over.
    virtual std::shared_ptr<MetricsValueBuffer> TakeBuffer() { return nullptr; }

  protected:
    IWriter() = default;
    IWriter(const IWriter&) = delete;
    IWriter& operator=(const IWriter&) = delete;
};

}  // namespace Metrics
