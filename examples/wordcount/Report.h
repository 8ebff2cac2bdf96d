#pragma once

#include <chrono>
#include <filesystem>
#include <iosfwd>

#include "examples/wordcount/Totals.h"

namespace WordCount {

using Milliseconds = std::chrono::duration<double, std::milli>;

struct Durations {
    Milliseconds work;      ///< counting all files
    Milliseconds delivery;  ///< from the end of the work until the last event was in the files
};

void PrintTotals(std::ostream& out, const Totals& totals, const Durations& took);
void PrintFiles(std::ostream& out, const std::filesystem::path& folder, const Durations& took);
/// The table summary.csv in that folder; nothing if it has no rows.
void PrintSummary(std::ostream& out, const std::filesystem::path& folder);
void PrintCommonest(std::ostream& out, const Totals& totals);

}  // namespace WordCount
