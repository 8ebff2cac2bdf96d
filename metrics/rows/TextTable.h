#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/MetricsEvent.h"
#include "metrics/XmlParser.h"
#include "metrics/reader/XmlScanner.h"
#include "metrics/rows/RowReader.h"
#include "metrics/values/DateTimeText.h"
#include "metrics/values/TextBuffer.h"

namespace Metrics::detail {

// The table that a text output writes live: events in, lines out. It gives the very rows that come of writing
// the events as XML and reading that back, but makes no markup where a name needs none; a name that XML would
// read as something else goes through the scanner, so that it is read so here too.
//
// Called in this order by the one thread that delivers: Begin once, Write and Flush any number of times, End
// once. Write and End may throw RowDefinitionError; the table has then ended.
class TextTable {
  public:
    // Compiles the columns; throws RowDefinitionError. The stream must live until End.
    TextTable(std::ostream& out, char separator, const std::vector<std::string>& columns);
    TextTable(const TextTable&) = delete;
    TextTable& operator=(const TextTable&) = delete;

    // What the table will have, for schema.ini: exactly the written columns.
    std::vector<StreamingXml::XmlColumnInfo> Columns() const;

    // The header line; that of a summary comes with its groups, in End.
    void Begin();
    // Events that XML does not show are ignored. Cheap for what no column asks for.
    void Write(const MetricsEvent& event);
    // Hands the lines so far to the stream, and flushes it when there were any.
    void Flush();
    // Closes the open elements, writes what is due and flushes.
    void End();

  private:
    void OpenScope(const MetricsEvent& event);
    void CloseScope(std::string_view name);
    void WriteValue(std::string_view name, const MetricsValue& value);
    void ForceClose(const MetricsEvent& event);
    void AddAttribute(const MetricsEvent& event);

    // Reads the name into name_.
    std::string_view NameOf(const MetricsEvent& event);
    bool IsPlain(std::string_view name) const;
    void Indent();
    void EndLine();
    void FeedMarkup();
    std::uint64_t Line();
    void AppendCurrentRow();
    void WriteLines();

    std::ostream& out_;
    char separator_;
    CompiledRow row_;
    RowReader reader_;
    StreamingXml::XmlScanner scanner_;
    bool ended_ = false;

    std::vector<std::string> scopes_;  // the names of the open scopes, for a forced closure
    std::size_t openScopes_ = 0;
    TextBuffer attributes_;  // of the next scope, as markup
    TextBuffer name_;
    TextBuffer text_;
    DateTimeText times_;
    std::string markup_;
    std::string lines_;
};

}  // namespace Metrics::detail
