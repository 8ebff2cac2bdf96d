#include "metrics/output/RawWriter.h"

#include "metrics/MetricsEvent.h"
#include "metrics/values/ValueText.h"

namespace Metrics {

namespace {

constexpr auto kParamFlags = MetricsValue::EscapeNewlines | MetricsValue::AlwaysQuote;

// Stands for every time in muted output. Kept bit for bit: files of old runs are compared with new ones.
constexpr std::uint64_t kMutedTicks = 0x78A1DC256A632;

bool NamesContext(const MetricsEvent& event) {
    return event.Type() == MetricsEventType::ContextCreate ||
           event.Type() == MetricsEventType::ContextConstruct;
}

}  // namespace

void RawWriter::Begin() {
    block_.Text().Append("timestamp,context_id,component_id,event_type,param1,param2");
    block_.EndLine();
    block_.Flush();
}

void RawWriter::Write(const MetricsEvent& event) {
    detail::TextBuffer& text = block_.Text();
    AppendTimestamp(text, event);
    text.Append(',');
    text.AppendNumber(mute_ ? 0 : event.contextId.AsUInt64());
    text.Append(',');
    text.AppendNumber(event.ComponentId());
    text.Append(',');
    text.AppendNumber(static_cast<std::uint64_t>(event.Type()));
    text.Append(',');
    AppendParam1(text, event);
    text.Append(',');
    detail::AppendText(text, event.param2, kParamFlags, times_);
    block_.EndLine();
}

void RawWriter::AppendTimestamp(detail::TextBuffer& text, const MetricsEvent& event) {
    if (mute_)
        detail::AppendText(text, MetricsDateTime(kMutedTicks), 0, times_);
    else
        detail::AppendText(text, event.timestamp, 0, times_);
}

void RawWriter::AppendParam1(detail::TextBuffer& text, const MetricsEvent& event) {
    if (mute_ && NamesContext(event))
        text.Append("\"0\"");
    else
        detail::AppendText(text, event.param1, kParamFlags, times_);
}

}  // namespace Metrics
