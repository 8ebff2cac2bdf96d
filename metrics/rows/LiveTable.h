#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "metrics/XmlParser.h"
#include "metrics/rows/CompiledRow.h"
#include "metrics/rows/RowReader.h"

namespace Metrics::detail {

// The table that an output writes live: what all elements share, whichever LiveRows they come through. It has
// the header, the numbers of the rows, the groups of a summary in the order of their first rows, and the
// lines on their way to the stream.
//
// Called in this order by the one thread that delivers: Begin once, Flush and the feeds any number of times,
// End once, when all feeds have ended.
class LiveTable {
  public:
    // Compiles the columns; throws RowDefinitionError. The stream must live until End.
    LiveTable(std::ostream& out, char separator, const std::vector<std::string>& columns);
    LiveTable(const LiveTable&) = delete;
    LiveTable& operator=(const LiveTable&) = delete;

    // What the table will have, for schema.ini: exactly the written columns.
    std::vector<StreamingXml::XmlColumnInfo> Columns() const;
    const CompiledRow& Row() const { return row_; }
    // Where feeds bring their rows.
    RowReader& Reader() { return reader_; }

    // The header line; that of a summary comes with its groups, in End.
    void Begin();
    // Hands the lines so far to the stream, and flushes it when there were any.
    void Flush();
    // Writes what is due and flushes.
    void End();

    // Ends the table without the groups of a summary: a feed has failed.
    void BreakOff();
    // What comes then is ignored.
    bool HasEnded() const { return ended_; }

  private:
    void AppendCurrentRow();
    void WriteLines();

    std::ostream& out_;
    char separator_;
    CompiledRow row_;
    RowReader reader_;
    bool ended_ = false;
    std::string lines_;
};

}  // namespace Metrics::detail
