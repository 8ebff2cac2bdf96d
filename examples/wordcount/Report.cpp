#include "examples/wordcount/Report.h"

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "examples/wordcount/OutputFolder.h"
#include "metrics/MetricsManager.h"

namespace WordCount {

namespace {

constexpr std::size_t kCommonest = 10;

// No text in the summary holds a comma or a quote, so that a row comes apart at the commas.
std::vector<std::vector<std::string>> ReadTable(const std::filesystem::path& path) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        rows.emplace_back();
        for (std::string field; std::getline(fields, field, ',');) rows.back().push_back(field);
    }
    return rows;
}

}  // namespace

void PrintTotals(std::ostream& out, const Totals& totals, const Durations& took) {
    out << "Counted " << totals.Words() << " words, " << totals.DifferentWords() << " different ones, in "
        << totals.Files() << " files of " << totals.Bytes() << " bytes; " << std::fixed
        << std::setprecision(1) << took.work.count() << " ms.\n";
}

void PrintFiles(std::ostream& out, const std::filesystem::path& folder, const Durations& took) {
    const auto statistics = Metrics::MetricsManager::GetInstance().GetStatistics();
    out << "\nThe run made " << statistics.delivered << " events. The last of them was in the files "
        << took.delivery.count() << " ms after the work was done.\nIn " << folder.string() << ":\n";
    for (const Written& written : ListOutputFolder(folder)) {
        out << std::setw(18) << written.name << std::setw(8) << written.files
            << (written.files == 1 ? " file  " : " files ") << std::setw(12) << written.bytes << " bytes";
        if (written.lines != 0) out << std::setw(10) << written.lines << " lines";
        out << '\n';
    }
}

void PrintSummary(std::ostream& out, const std::filesystem::path& folder) {
    const auto rows = ReadTable(folder / "summary.csv");
    if (rows.size() < 2) return;
    std::size_t longest = 0;
    for (const auto& row : rows) longest = std::max(longest, row.at(0).size());
    out << "\nSeconds by stage:\n";
    for (const auto& row : rows) {
        out << "  " << row.at(0) << std::string(longest - row.at(0).size(), ' ');
        for (std::size_t i = 1; i < row.size(); ++i) out << std::setw(11) << row[i];
        out << '\n';
    }
}

void PrintCommonest(std::ostream& out, const Totals& totals) {
    out << "\nThe commonest words:\n";
    for (const auto& [word, count] : totals.Commonest(kCommonest)) {
        out << std::setw(10) << count << "  " << word << '\n';
    }
}

}  // namespace WordCount
