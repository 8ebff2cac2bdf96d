#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace WordCount {

/// Makes the output folder, or removes what an earlier run left there. Throws
/// std::filesystem::filesystem_error.
void ClearOutputFolder(const std::filesystem::path& folder);

/// A file in the output folder, or all files whose names differ in a number only.
struct Written {
    std::string name;  ///< "events.csv", "file-*.xml"
    std::uint64_t files = 0;
    std::uint64_t lines = 0;  ///< of text
    std::uint64_t bytes = 0;
};

/// What a run left in the output folder, by name.
std::vector<Written> ListOutputFolder(const std::filesystem::path& folder);

}  // namespace WordCount
