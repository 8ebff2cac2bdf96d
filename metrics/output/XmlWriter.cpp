#include "metrics/output/XmlWriter.h"

#include <algorithm>
#include <cstdint>

#include "metrics/MetricsEvent.h"
#include "metrics/values/ValueText.h"

namespace Metrics {

using detail::AppendText;

namespace {

constexpr auto kAttributeFlags = MetricsValue::XmlEscape | MetricsValue::AlwaysQuote;

}  // namespace

void XmlWriter::Write(const MetricsEvent& event) {
    switch (event.Type()) {
        case MetricsEventType::ScopeOpen: return OpenElement(event);
        case MetricsEventType::ScopeClose: return CloseElement();
        case MetricsEventType::ScopeValue: return WriteValue(event);
        case MetricsEventType::NameValue: return AddAttribute(event);
        case MetricsEventType::DemuxSynthesized: return ForceClose(event);
        default: return;
    }
}

void XmlWriter::Indent() {
    const std::size_t width = 2 * nameStarts_.size();
    char* at = block_.Text().Room(width);
    std::fill_n(at, width, ' ');
    block_.Text().Commit(at + width);
}

void XmlWriter::OpenElement(const MetricsEvent& event) {
    detail::TextBuffer& text = block_.Text();
    Indent();
    text.Append('<');
    const std::size_t start = text.Size();
    AppendText(text, event.param1, 0, times_);
    nameStarts_.push_back(names_.size());
    names_ += text.View().substr(start);
    text.Append(attributes_.View());
    text.Append('>');
    block_.EndLine();
    attributes_.Clear();
}

void XmlWriter::CloseElement() {
    attributes_.Clear();
    if (!nameStarts_.empty()) CloseInnermost();
}

// The name of what is open, whatever the event that closes it calls it.
void XmlWriter::CloseInnermost() {
    detail::TextBuffer& text = block_.Text();
    const std::size_t name = nameStarts_.back();
    nameStarts_.pop_back();
    Indent();
    text.Append("</");
    text.Append(std::string_view(names_).substr(name));
    text.Append('>');
    block_.EndLine();
    names_.resize(name);
}

void XmlWriter::WriteValue(const MetricsEvent& event) {
    detail::TextBuffer& text = block_.Text();
    Indent();
    text.Append('<');
    const std::size_t start = text.Size();
    AppendText(text, event.param1, 0, times_);
    const std::size_t length = text.Size() - start;
    text.Append('>');
    AppendText(text, event.param2, MetricsValue::XmlEscape, times_);
    text.Append("</");
    text.Room(length);  // so that the name stays where it is while it is copied
    text.Append(text.View().substr(start, length));
    text.Append('>');
    block_.EndLine();
}

void XmlWriter::AddAttribute(const MetricsEvent& event) {
    attributes_.Append(' ');
    AppendText(attributes_, event.param1, 0, times_);
    attributes_.Append('=');
    AppendText(attributes_, event.param2, kAttributeFlags, times_);
}

void XmlWriter::ForceClose(const MetricsEvent& event) {
    attributes_.Clear();
    const auto depth = static_cast<std::int32_t>(event.param1.AsInt64());
    if (depth <= 0) return;
    MetricsEvent note = event;
    note.param1 = MetricsValue::Ref("ForceCloseContextDepth");
    note.param2 = depth;
    WriteValue(note);
    for (std::int32_t closed = 0; closed < depth && !nameStarts_.empty(); ++closed) CloseInnermost();
}

}  // namespace Metrics
