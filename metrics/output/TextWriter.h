#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "metrics/output/IWriter.h"
#include "metrics/rows/LiveRows.h"
#include "metrics/rows/LiveTable.h"

namespace Metrics {

// The rows of a row definition as delimited lines, and beside the file a schema.ini that describes them.
class TextWriter final : public IWriter {
  public:
    // `fileName` is empty when there is to be no schema.ini. Throws RowDefinitionError.
    TextWriter(std::ostream& stream, std::string fileName, char separator,
               const std::vector<std::string>& rowDefinition);

    void Begin() override;
    void Write(const MetricsEvent& event) override;
    void Flush() override { table_.Flush(); }
    // Rows that waited for the input to end come now.
    void End() override;

  private:
    const std::string fileName_;
    const char separator_;
    detail::LiveTable table_;
    detail::LiveRows rows_;
};

}  // namespace Metrics
