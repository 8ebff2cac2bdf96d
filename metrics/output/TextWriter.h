#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "metrics/output/IWriter.h"
#include "metrics/output/NestedWriter.h"
#include "metrics/rows/LiveRows.h"
#include "metrics/rows/LiveTable.h"

namespace Metrics {

// The rows of a row definition as delimited lines.
class TextWriter final : public IWriter {
  public:
    // Takes a sentence about what a limit has cost; may be empty.
    using Remark = std::function<void(std::string)>;

    // `misnested` as in Nesting. Throws RowDefinitionError.
    TextWriter(std::ostream& stream, char separator, const std::vector<std::string>& rowDefinition,
               bool* misnested = nullptr, Remark remark = {});

    void Begin() override { table_.Begin(); }
    void Write(const MetricsEvent& event) override;
    void TurnTo(std::uint64_t root) override;
    void EndTable(std::uint64_t root) override;
    void Interrupt() override;
    void Flush() override { table_.Flush(); }
    // Rows that waited for the input to end come now.
    void End() override;
    std::string Schema() const override;

  private:
    // The elements of one root, or of all roots that come one after the other.
    struct Feed {
        Feed(detail::LiveTable& table, bool* misnested) : nesting(misnested), rows(table.Reader()) {}

        detail::Nesting nesting;
        detail::LiveRows rows;
    };

    template <class Action>
    void Guarded(Action action);
    std::unique_ptr<Feed> NewFeed();

    const char separator_;
    bool* const misnested_;
    const Remark remark_;
    detail::LiveTable table_;
    Feed common_;
    std::map<std::uint64_t, std::unique_ptr<Feed>> feeds_;  // by root
    std::vector<std::unique_ptr<Feed>> spare_;
    std::uint64_t root_ = 0;  // that is written for
    Feed* feed_ = &common_;   // the same
};

}  // namespace Metrics
