#pragma once

#include <string_view>

#include "metrics/MetricsValue.h"
#include "metrics/values/DateTimeText.h"
#include "metrics/values/TextBuffer.h"

// Names and texts of events where they become elements: as XML, and as what reading that XML gives. In both a
// byte that begins no character of XML is the character of its number, control characters other than tab and
// line feed are left out of texts (names keep them), and wide text is narrowed to the low byte of each
// character.
namespace Metrics::detail {

void AppendXmlName(TextBuffer& out, const MetricsValue& name, DateTimeText& times);
// The name of an attribute: none declares a namespace.
void AppendXmlKey(TextBuffer& out, const MetricsValue& key, DateTimeText& times);
// `flags` may be MetricsValue::AlwaysQuote, for an attribute's value.
void AppendXmlText(TextBuffer& out, const MetricsValue& value, MetricsValue::ToStringFlags flags,
                   DateTimeText& times);

// These return the text of the value itself or what they put into `room`, which they clear first. Valid until
// either changes.
std::string_view ElementName(const MetricsValue& name, TextBuffer& room, DateTimeText& times);
std::string_view ElementText(const MetricsValue& value, TextBuffer& room, DateTimeText& times);

}  // namespace Metrics::detail
