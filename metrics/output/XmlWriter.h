#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/MetricsEvent.h"
#include "metrics/output/IWriter.h"
#include "metrics/output/TextBlock.h"
#include "metrics/values/AttributeList.h"
#include "metrics/values/DateTimeText.h"

namespace Metrics {

// Scopes as indented elements, values as elements with a text, name/values as attributes of the next scope
// that opens. Well-formed whatever the events hold; with a root element the whole is a document, else the
// context's own scope is the outermost element.
class XmlWriter final : public IWriter {
  public:
    // Without a declaration and a root element when its name is empty.
    explicit XmlWriter(std::ostream& stream, std::string rootElement = {});

    void Begin() override;
    // Here, so that who stands before it has looked at the type for it as well.
    void Write(const MetricsEvent& event) override {
        switch (event.Type()) {
            case MetricsEventType::ScopeOpen: return OpenElement(event.param1);
            case MetricsEventType::ScopeClose: return CloseScope();
            case MetricsEventType::ScopeValue: return WriteValue(event.param1, event.param2);
            case MetricsEventType::NameValue: return AddAttribute(event);
            case MetricsEventType::DemuxSynthesized: return ForceClose(event);
            default: return;
        }
    }
    void Flush() override { block_.Flush(); }
    // Closes what is open.
    void End() override;

  private:
    void OpenElement(const MetricsValue& name);
    void CloseScope();
    void CloseElement();
    void WriteValue(const MetricsValue& name, const MetricsValue& value);
    void AddAttribute(const MetricsEvent& event);
    void ForceClose(const MetricsEvent& event);

    void Indent();
    bool HasOpenScope() const { return nameStarts_.size() > (rootElement_.empty() ? 0U : 1U); }

    detail::TextBlock block_;
    const std::string rootElement_;
    detail::DateTimeText times_;
    detail::AttributeList attributes_;  // of the next element, as they will stand in it
    std::string names_;                 // of the open elements, one after the other
    std::vector<std::size_t> nameStarts_;
};

}  // namespace Metrics
