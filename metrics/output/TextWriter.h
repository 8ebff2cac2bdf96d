#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "metrics/output/IWriter.h"
#include "metrics/rows/TextTable.h"

namespace Metrics {

// The rows of a row definition as delimited lines.
class TextWriter final : public IWriter {
  public:
    // Throws RowDefinitionError.
    TextWriter(std::ostream& stream, char separator, const std::vector<std::string>& rowDefinition);

    void Begin() override { table_.Begin(); }
    void Write(const MetricsEvent& event) override { table_.Write(event); }
    void Flush() override { table_.Flush(); }
    // Rows that waited for the input to end come now.
    void End() override { table_.End(); }
    std::string Schema() const override;

  private:
    const char separator_;
    detail::TextTable table_;
};

}  // namespace Metrics
