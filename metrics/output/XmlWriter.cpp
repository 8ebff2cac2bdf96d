#include "metrics/output/XmlWriter.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "metrics/MetricsEvent.h"
#include "metrics/values/ElementText.h"

namespace Metrics {

using detail::TextBuffer;

namespace {

constexpr std::string_view kBlanks = "                ";

}  // namespace

XmlWriter::XmlWriter(std::ostream& stream, std::string rootElement)
    : block_(stream), rootElement_(std::move(rootElement)) {}

void XmlWriter::Begin() {
    if (rootElement_.empty()) return;
    block_.Text().Append("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    OpenElement(MetricsValue::Ref(rootElement_.c_str()));
}

void XmlWriter::End() {
    while (!nameStarts_.empty()) CloseElement();
    block_.Flush();
}

// By sixteen blanks at a time; what is too much is written over. The depth is nearly always small.
void XmlWriter::Indent() {
    const std::size_t width = 2 * nameStarts_.size();
    char* const at = block_.Text().Room(width + kBlanks.size());
    for (std::size_t written = 0; written < width; written += kBlanks.size())
        std::memcpy(at + written, kBlanks.data(), kBlanks.size());
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

void XmlWriter::CloseScope() {
    attributes_.Clear();
    if (HasOpenScope()) CloseElement();
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
