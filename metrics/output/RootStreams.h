#pragma once

#include <boost/intrusive/list.hpp>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "metrics/output/ContextForest.h"
#include "metrics/output/PartStack.h"
#include "metrics/output/TargetList.h"

namespace Metrics::detail {

// What was written of a root, and what is held back of it.
struct RootStream
    : boost::intrusive::list_base_hook<boost::intrusive::link_mode<boost::intrusive::auto_unlink>> {
    explicit RootStream(EventBlocks& blocks) : held(blocks) {}

    EventFifo held;           // in its final order
    PartStack open;           // in what was written
    std::uint64_t table = 0;  // that its rows come from; 0 is that of all roots which take turns
    bool muted = false;       // inside a scope whose events are left out
};

// The way from the order of each root to the targets that get all of them. A root is written as it goes, or
// held until it ends or its memory is needed.
class RootStreams {
  public:
    // What a cut means to the format: elements are closed and opened again; events go on, for their reader
    // puts them in order by itself; tables are not cut, but have room for the rows of several roots.
    enum class Form { Elements, Events, Rows };

    RootStreams(Form form, EventBlocks& blocks, TargetList& targets)
        : form_(form), blocks_(blocks), targets_(targets) {}
    ~RootStreams();
    RootStreams(const RootStreams&) = delete;
    RootStreams& operator=(const RootStreams&) = delete;

    void MuteVolatileData() { mute_ = true; }

    // The next events of a root, whose turn it is.
    void Write(Audience& audience, RootRecord& root, std::span<const MetricsEvent> events);
    // The next events of a root that is one of many.
    void Add(Audience& audience, RootRecord& root, std::span<const MetricsEvent> events);
    // Writes what is held of a root and cuts it there.
    void Cut(Audience& audience, RootRecord& root);
    // `child` is not waited for any more: its stream goes on beside that of its parents.
    void SplitOff(Audience& audience, RootRecord& parent, RootRecord& child);
    // A root has ended: what is held of it is written. Without an audience that is given up.
    void End(Audience* audience, RootStream& stream);

    void WriteContextless(Audience& audience, const MetricsEvent& event);

  private:
    using Streams = boost::intrusive::list<RootStream, boost::intrusive::constant_time_size<false>>;

    RootStream& StreamOf(RootRecord& root, std::uint64_t table);
    void Write(Audience& audience, RootStream& stream, std::span<const MetricsEvent> events);
    void WriteHeld(Audience& audience, RootStream& stream, const std::vector<std::size_t>& marks);
    void WriteWhole(Audience& audience, RootStream& stream);
    void WriteOne(Audience& audience, RootStream& stream, const MetricsEvent& event, bool marked);
    void Send(Audience& audience, const RootStream& stream, std::span<const MetricsEvent> events);

    const Form form_;
    EventBlocks& blocks_;
    TargetList& targets_;
    bool mute_ = false;
    bool contextlessMuted_ = false;
    Streams streams_;
    std::vector<std::unique_ptr<RootStream>> spare_;
};

}  // namespace Metrics::detail
