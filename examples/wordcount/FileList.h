#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace WordCount {

/// A file to count.
struct File {
    std::filesystem::path path;
    std::string name;  ///< relative to the folder, valid UTF-8, at most 200 bytes: fit for every output
};

struct FileList {
    std::vector<File> files;            ///< by path
    std::vector<std::string> problems;  ///< sub-folders that could not be read
};

/// All regular files below `folder`, without hidden ones and without what lies in the folder `except`. Throws
/// std::runtime_error if the folder cannot be read or has no such file.
FileList ListFiles(const std::filesystem::path& folder, const std::filesystem::path& except);

}  // namespace WordCount
