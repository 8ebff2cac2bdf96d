#include "examples/wordcount/OutputFolder.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>

namespace WordCount {

namespace fs = std::filesystem;

namespace {

// The name with a star for its number.
std::string PatternOf(std::string name) {
    constexpr const char* kDigits = "0123456789";
    const auto first = std::min(name.find_first_of(kDigits), name.size());
    const auto last = std::min(name.find_first_not_of(kDigits, first), name.size());
    return last > first ? name.replace(first, last - first, "*") : name;
}

// Nothing but what this program writes is touched or shown. (schema.ini may have parts that are others'.)
bool IsOurs(const std::string& pattern) {
    constexpr const char* kNames[] = {"events.csv", "ordered.csv", "file-*.xml",       "run.xml",
                                      "stages.csv", "summary.csv", "process-*.buffer", "process-*.counts"};
    return std::find(std::begin(kNames), std::end(kNames), pattern) != std::end(kNames);
}

std::map<fs::path, std::string> OurFiles(const fs::path& folder) {
    std::map<fs::path, std::string> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string pattern = PatternOf(entry.path().filename().string());
        if (entry.is_regular_file() && IsOurs(pattern)) files.emplace(entry.path(), pattern);
    }
    return files;
}

std::uint64_t CountLines(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return static_cast<std::uint64_t>(std::count(std::istreambuf_iterator<char>(in), {}, '\n'));
}

}  // namespace

void ClearOutputFolder(const fs::path& folder) {
    fs::create_directories(folder);
    for (const auto& [path, pattern] : OurFiles(folder)) fs::remove(path);
}

std::vector<Written> ListOutputFolder(const fs::path& folder) {
    std::map<std::string, Written> byPattern;
    for (const auto& [path, pattern] : OurFiles(folder)) {
        Written& written = byPattern[pattern];
        ++written.files;
        if (path.extension() != ".buffer") written.lines += CountLines(path);
        written.bytes += fs::file_size(path);
    }
    std::vector<Written> all;
    for (auto& [pattern, written] : byPattern) {
        written.name = pattern;
        all.push_back(written);
    }
    return all;
}

}  // namespace WordCount
