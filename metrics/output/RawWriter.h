#pragma once

#include <iosfwd>

#include "metrics/output/IWriter.h"
#include "metrics/output/TextBlock.h"
#include "metrics/values/DateTimeText.h"

namespace Metrics {

// One line per event, its fields separated by commas, after a line of their names. With `mute` what differs
// from one run to the next (time, context, the parent of a created context) is replaced by constants.
class RawWriter final : public IWriter {
  public:
    RawWriter(std::ostream& stream, bool mute) : block_(stream), mute_(mute) {}

    void Begin() override;
    void Write(const MetricsEvent& event) override;
    void Flush() override { block_.Flush(); }
    void End() override { block_.Flush(); }

  private:
    void AppendTimestamp(detail::TextBuffer& text, const MetricsEvent& event);
    void AppendParam1(detail::TextBuffer& text, const MetricsEvent& event);

    detail::TextBlock block_;
    detail::DateTimeText times_;
    const bool mute_;
};

}  // namespace Metrics
