#include "metrics/rows/LiveRows.h"

#include "metrics/values/ElementText.h"

namespace Metrics::detail {
namespace {

// Those that an element's text loses in XML; others at its ends are escaped there.
std::string_view WithoutBlanks(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ')) text.remove_suffix(1);
    return text;
}

}  // namespace

void LiveRows::Write(const MetricsEvent& event) {
    switch (event.Type()) {
        case MetricsEventType::ScopeOpen: return OpenScope(event.param1);
        case MetricsEventType::ScopeClose: attributes_.Clear(); return CloseScope();
        case MetricsEventType::ScopeValue: return WriteValue(event.param1, event.param2);
        case MetricsEventType::NameValue: return AddAttribute(event);
        case MetricsEventType::DemuxSynthesized: return ForceClose(event.param1.AsInt64());
        default: return;
    }
}

void LiveRows::End() {
    engine_.Finish();
    openScopes_ = 0;
    attributes_.Clear();
    line_ = 1;
}

void LiveRows::OpenScope(const MetricsValue& name) {
    ListAttributes();
    engine_.OpenPlain(ElementName(name, name_, times_), listed_, line_++);
    ++openScopes_;
    attributes_.Clear();
}

void LiveRows::CloseScope() {
    if (openScopes_ == 0) return;
    engine_.CloseElement();
    --openScopes_;
    ++line_;
}

void LiveRows::WriteValue(const MetricsValue& name, const MetricsValue& value) {
    engine_.OpenPlain(ElementName(name, name_, times_), {}, line_++);
    if (engine_.WantsText()) engine_.PlainText(WithoutBlanks(ElementText(value, text_, times_)));
    engine_.CloseElement();
}

void LiveRows::ForceClose(std::int64_t scopes) {
    attributes_.Clear();
    const auto depth = static_cast<std::int32_t>(scopes);
    if (depth <= 0) return;
    WriteValue(MetricsValue::Ref("ForceCloseContextDepth"), depth);
    for (std::int32_t closed = 0; closed < depth && openScopes_ > 0; ++closed) CloseScope();
}

void LiveRows::AddAttribute(const MetricsEvent& event) {
    if (!row_.usesAttributes) return;
    TextBuffer& text = attributes_.Text();
    text.Append(ElementName(event.param1, text_, times_));
    attributes_.EndKey();
    text.Append(ElementText(event.param2, text_, times_));
    attributes_.EndValue();
}

void LiveRows::ListAttributes() {
    listed_.clear();
    for (std::size_t i = 0; i < attributes_.Size(); ++i)
        listed_.push_back({attributes_.Key(i), attributes_.Value(i), false});
}

}  // namespace Metrics::detail
