#include "metrics/output/RootStreams.h"

#include "metrics/output/EventKind.h"
#include "metrics/output/VolatileData.h"

namespace Metrics::detail {

namespace {

constexpr std::size_t kMostSpare = 64;

}  // namespace

RootStreams::~RootStreams() {
    streams_.clear_and_dispose([](RootStream* stream) { delete stream; });
}

RootStream& RootStreams::StreamOf(RootRecord& root, std::uint64_t table) {
    if (root.stream != nullptr) return *root.stream;
    if (spare_.empty()) spare_.push_back(std::make_unique<RootStream>(blocks_));
    root.stream = spare_.back().release();
    spare_.pop_back();
    streams_.push_back(*root.stream);
    root.stream->table = form_ == Form::Rows ? table : 0;
    return *root.stream;
}

void RootStreams::Write(Audience& audience, RootRecord& root, std::span<const MetricsEvent> events) {
    Write(audience, StreamOf(root, 0), events);
}

void RootStreams::Add(Audience& audience, RootRecord& root, std::span<const MetricsEvent> events) {
    RootStream& stream = StreamOf(root, root.id);
    if (form_ == Form::Rows) return Write(audience, stream, events);
    for (const MetricsEvent& event : events) stream.held.Push(event);
}

void RootStreams::Write(Audience& audience, RootStream& stream, std::span<const MetricsEvent> events) {
    if (mute_ || stream.open.IsCut()) {
        for (const MetricsEvent& event : events) WriteOne(audience, stream, event, false);
    } else {
        if (form_ != Form::Events) stream.open.Follow(events);
        Send(audience, stream, events);
    }
}

void RootStreams::WriteOne(Audience& audience, RootStream& stream, const MetricsEvent& event, bool marked) {
    if (mute_ && IsVolatile(event, stream.muted)) return;
    const auto send = [&](const MetricsEvent& one) { Send(audience, stream, {&one, 1}); };
    if (form_ == Form::Events) return send(event);
    if (marked) return stream.open.WriteMarked(event, send);
    stream.open.Write(event, send);
}

void RootStreams::WriteHeld(Audience& audience, RootStream& stream, const std::vector<std::size_t>& marks) {
    auto mark = marks.begin();
    std::size_t index = 0;
    while (!stream.held.Empty()) {
        const std::span<const MetricsEvent> events = stream.held.Front();
        for (const MetricsEvent& event : events) {
            const bool marked = mark != marks.end() && *mark == index++;
            if (marked) ++mark;
            WriteOne(audience, stream, event, marked);
        }
        stream.held.Pop(events.size());
    }
}

void RootStreams::Cut(Audience& audience, RootRecord& root) {
    if (root.stream == nullptr || form_ == Form::Rows) return;
    RootStream& stream = *root.stream;
    if (form_ == Form::Events) return WriteHeld(audience, stream, {});
    WriteHeld(audience, stream, stream.open.FirstParts(stream.held));
    stream.open.Cut([&](const MetricsEvent& closing) { Send(audience, stream, {&closing, 1}); });
    targets_.Interrupt(audience);
}

void RootStreams::SplitOff(Audience& audience, RootRecord& parent, RootRecord& child) {
    if (form_ == Form::Events || parent.stream == nullptr) return;
    RootStream& stream = *parent.stream;
    RootStream& own = StreamOf(child, child.id);
    own.open = stream.open;
    own.open.StartElsewhere();
    if (stream.open.IsCut()) return stream.open.Forget(child.id);
    stream.open.CloseOf(child.id, [&](const MetricsEvent& closing) {
        Send(audience, stream, {&closing, 1});
    });
    if (form_ == Form::Rows) targets_.WriteRows(audience, stream.table, {});
    targets_.Interrupt(audience);
}

void RootStreams::Send(Audience& audience, const RootStream& stream, std::span<const MetricsEvent> events) {
    if (form_ == Form::Rows)
        targets_.WriteRows(audience, stream.table, events);
    else
        targets_.Write(audience, events);
    const MetricsEvent& last = events.back();
    if (last.Type() == MetricsEventType::ContextClose && ContextOf(last) == audience.contextId)
        targets_.Mark(audience);
}

// In one piece when nothing has to be done to its events.
void RootStreams::WriteWhole(Audience& audience, RootStream& stream) {
    if (mute_ || !stream.open.Empty() || audience.contextId != 0) return WriteHeld(audience, stream, {});
    for (std::span<const MetricsEvent> events; !(events = stream.held.Front()).empty();) {
        Send(audience, stream, events);
        stream.held.Pop(events.size());
    }
}

void RootStreams::End(Audience* audience, RootStream& stream) {
    if (audience != nullptr) {
        WriteWhole(*audience, stream);
        stream.open.Cut([&](const MetricsEvent& closing) { Send(*audience, stream, {&closing, 1}); });
        if (stream.table != 0) targets_.EndTable(*audience, stream.table);
    }
    stream.unlink();
    std::unique_ptr<RootStream> over(&stream);
    if (spare_.size() >= kMostSpare) return;
    stream.held.Clear();
    stream.open.Clear();
    stream.muted = false;
    spare_.push_back(std::move(over));
}

void RootStreams::WriteContextless(Audience& audience, const MetricsEvent& event) {
    if (!mute_ || !IsVolatile(event, contextlessMuted_)) targets_.Write(audience, {&event, 1});
}

}  // namespace Metrics::detail
