#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "metrics/MetricsEvent.h"
#include "metrics/reader/XmlHandler.h"
#include "metrics/rows/RowEngine.h"
#include "metrics/rows/RowReader.h"
#include "metrics/values/AttributeList.h"
#include "metrics/values/DateTimeText.h"
#include "metrics/values/TextBuffer.h"

namespace Metrics::detail {

// Events in, elements out: scopes and values go to a row engine as they are, whatever their names, never as
// markup. The rows are those that come of writing the events as XML and reading that back, nodes and lines
// numbered as there. A table has one of these for all its events, or one for each root.
class LiveRows {
  public:
    // The reader, which gets the rows, must live as long.
    explicit LiveRows(RowReader& reader)
        : row_(reader.Row()), engine_(row_, reader, reader.Notices(), reader.Limits()) {}

    // Events that XML does not show are ignored. Cheap for what no column asks for. Throws
    // RowDefinitionError, and is then of no further use.
    void Write(const MetricsEvent& event);
    // Closes the open elements, so that the rows that waited for it come. Then it is as new, ready for
    // another root's events.
    void End();

  private:
    void OpenScope(const MetricsValue& name);
    void CloseScope();
    void WriteValue(const MetricsValue& name, const MetricsValue& value);
    void ForceClose(std::int64_t scopes);
    void AddAttribute(const MetricsEvent& event);
    void ListAttributes();

    const CompiledRow& row_;
    RowEngine engine_;
    std::uint64_t line_ = 1;  // where the XML would be
    std::size_t openScopes_ = 0;
    AttributeList attributes_;                        // of the next scope
    std::vector<StreamingXml::XmlAttribute> listed_;  // the same for the engine
    TextBuffer name_;
    TextBuffer text_;
    DateTimeText times_;
};

}  // namespace Metrics::detail
