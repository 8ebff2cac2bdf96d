#include "metrics/output/XmlWriter.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "metrics/MetricsEvent.h"
#include "metrics/values/ElementText.h"

namespace Metrics {

using detail::TextBuffer;

XmlWriter::XmlWriter(std::ostream& stream, std::string rootElement)
    : block_(stream), rootElement_(std::move(rootElement)) {}

void XmlWriter::Begin() {
    if (rootElement_.empty()) return;
    block_.Text().Append("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    OpenElement(MetricsValue::Ref(rootElement_.c_str()));
}

void XmlWriter::Write(const MetricsEvent& event) {
    switch (event.Type()) {
        case MetricsEventType::ScopeOpen: return OpenElement(event.param1);
        case MetricsEventType::ScopeClose:
            attributes_.Clear();
            if (HasOpenScope()) CloseElement();
            return;
        case MetricsEventType::ScopeValue: return WriteValue(event.param1, event.param2);
        case MetricsEventType::NameValue: return AddAttribute(event);
        case MetricsEventType::DemuxSynthesized: return ForceClose(event);
        default: return;
    }
}

void XmlWriter::End() {
    while (!nameStarts_.empty()) CloseElement();
    block_.Flush();
}

void XmlWriter::Indent() {
    const std::size_t width = 2 * nameStarts_.size();
    char* at = block_.Text().Room(width);
    std::fill_n(at, width, ' ');
    block_.Text().Commit(at + width);
}

void XmlWriter::OpenElement(const MetricsValue& name) {
    TextBuffer& text = block_.Text();
    Indent();
    text.Append('<');
    const std::size_t start = text.Size();
    AppendXmlName(text, name, times_);
    nameStarts_.push_back(names_.size());
    names_ += text.View().substr(start);
    if (!attributes_.IsEmpty()) {
        attributes_.AppendTo(text);
        attributes_.Clear();
    }
    text.Append('>');
    block_.EndLine();
}

// By the name that it was opened with, whatever the closing event says.
void XmlWriter::CloseElement() {
    TextBuffer& text = block_.Text();
    const std::size_t start = nameStarts_.back();
    nameStarts_.pop_back();
    Indent();
    text.Append("</");
    text.Append(std::string_view(names_).substr(start));
    text.Append('>');
    block_.EndLine();
    names_.resize(start);
}

void XmlWriter::WriteValue(const MetricsValue& name, const MetricsValue& value) {
    TextBuffer& text = block_.Text();
    Indent();
    text.Append('<');
    const std::size_t start = text.Size();
    AppendXmlName(text, name, times_);
    const std::size_t length = text.Size() - start;
    text.Append('>');
    AppendXmlText(text, value, 0, times_);
    text.Append("</");
    text.Room(length);  // so that the name stays where it is while it is copied
    text.Append(text.View().substr(start, length));
    text.Append('>');
    block_.EndLine();
}

void XmlWriter::AddAttribute(const MetricsEvent& event) {
    TextBuffer& text = attributes_.Text();
    text.Append(' ');
    AppendXmlKey(text, event.param1, times_);
    attributes_.EndKey();
    text.Append('=');
    AppendXmlText(text, event.param2, MetricsValue::AlwaysQuote, times_);
    attributes_.EndValue();
}

void XmlWriter::ForceClose(const MetricsEvent& event) {
    attributes_.Clear();
    const auto depth = static_cast<std::int32_t>(event.param1.AsInt64());
    if (depth <= 0) return;
    WriteValue(MetricsValue::Ref("ForceCloseContextDepth"), depth);
    for (std::int32_t closed = 0; closed < depth && HasOpenScope(); ++closed) CloseElement();
}

}  // namespace Metrics
