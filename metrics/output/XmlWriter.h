#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "metrics/output/IWriter.h"
#include "metrics/output/TextBlock.h"
#include "metrics/values/DateTimeText.h"

namespace Metrics {

// Scopes as indented elements, values as elements with a text, name/values as attributes of the next scope
// that opens. There is neither a declaration nor a root element: the context's own scope is the outermost
// one.
class XmlWriter final : public IWriter {
  public:
    explicit XmlWriter(std::ostream& stream) : block_(stream) {}

    void Begin() override {}
    void Write(const MetricsEvent& event) override;
    void Flush() override { block_.Flush(); }
    void End() override { block_.Flush(); }

  private:
    void OpenElement(const MetricsEvent& event);
    void CloseElement();
    void CloseInnermost();
    void WriteValue(const MetricsEvent& event);
    void AddAttribute(const MetricsEvent& event);
    void ForceClose(const MetricsEvent& event);

    void Indent();

    detail::TextBlock block_;
    detail::DateTimeText times_;
    detail::TextBuffer attributes_;  // of the next element, as they will stand in it
    std::string names_;              // of the open elements, one after the other
    std::vector<std::size_t> nameStarts_;
};

}  // namespace Metrics
