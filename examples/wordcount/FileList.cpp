#include "examples/wordcount/FileList.h"

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "examples/wordcount/Utf8.h"

namespace WordCount {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestName = 200;

// The end of a long path says more than its beginning.
std::string NameOf(const fs::path& path, const fs::path& folder) {
    const std::u8string relative = path.lexically_relative(folder).generic_u8string();
    std::string name(relative.begin(), relative.end());
    if (name.size() > kLongestName) name = "..." + name.substr(name.size() - (kLongestName - 3));
    return ValidUtf8(std::move(name));
}

bool IsHidden(const fs::path& path) {
    return path.filename().native().front() == '.';
}

// One folder: files go to `list`, folders to `pending`.
void ListFolder(const fs::path& folder, const fs::path& root, FileList& list,
                std::vector<fs::path>& pending) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        const fs::path& path = entry->path();
        std::error_code ignored;
        const fs::file_status status = entry->symlink_status(ignored);
        if (IsHidden(path)) continue;
        if (fs::is_directory(status)) pending.push_back(path);
        if (fs::is_regular_file(status)) list.files.push_back({path, NameOf(path, root)});
    }
    if (error) list.problems.push_back(folder.string() + ": " + error.message());
}

}  // namespace

FileList ListFiles(const fs::path& folder, const fs::path& except) {
    FileList list;
    std::vector<fs::path> pending{folder};
    while (!pending.empty()) {
        const fs::path next = std::move(pending.back());
        pending.pop_back();
        std::error_code ignored;
        if (fs::equivalent(next, except, ignored)) continue;
        ListFolder(next, folder, list, pending);
        if (next == folder && !list.problems.empty()) throw std::runtime_error(list.problems.front());
    }
    if (list.files.empty()) throw std::runtime_error(folder.string() + ": no file to count in this folder");
    std::sort(list.files.begin(), list.files.end(),
              [](const File& a, const File& b) { return a.path < b.path; });
    return list;
}

}  // namespace WordCount
