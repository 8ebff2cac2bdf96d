#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

#include "metrics/reader/XmlScanner.h"
#include "metrics/rows/RowReader.h"

// The rows of any number of inputs, as lines on a stream.
class Table {
  public:
    // All must live as long.
    Table(const Metrics::detail::CompiledRow& row, std::ostream& out, char separator);

    void WriteHeader();
    // Reads one input to its end. Throws InputError, naming it.
    void ReadXml(const std::string& name, std::istream& in);
    void ReadBuffer(const std::string& name, std::istream& in);
    // The groups of a summary, and what is still held back.
    void Finish();
    // How much the limits have cost, where that is more than was told when it happened.
    void ShowLeftOut() const;

    std::int64_t Rows() const { return reader_.RowsWritten(); }
    // The last input ended before its end: by an interrupt, or because nobody takes the lines.
    bool BrokenOff() const { return brokenOff_; }

  private:
    void Feed(StreamingXml::XmlScanner& scanner, std::istream& in);
    void ShowProgress(std::size_t bytes);
    void ClearProgress();
    void WriteLines();

    const Metrics::detail::CompiledRow& row_;
    std::ostream& out_;
    char separator_;
    Metrics::detail::RowReader reader_;
    std::string lines_;
    bool brokenOff_ = false;
    bool showsProgress_ = false;
    std::uint64_t bytesRead_ = 0;
    std::uint64_t nextProgress_;
};
