#include "metrics/rows/SchemaFile.h"

#include <chrono>
#include <exception>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "metrics/base/FileError.h"
#include "metrics/platform/Platform.h"

namespace Metrics::detail {
namespace {

constexpr std::size_t kLongestPart = 255;
// As long as five attempts with a pause of 250 milliseconds after each. Other writers hold the file for a few
// milliseconds only, so that it is tried more often.
constexpr auto kPatience = std::chrono::milliseconds(5 * 250);
constexpr auto kMoment = std::chrono::milliseconds(5);
// Also when the whole machine stood still until patience was over.
constexpr int kFewestAttempts = 50;

std::string_view TypeName(ColumnType type) {
    switch (type) {
        case ColumnType::None:
        case ColumnType::String: return "Memo";
        case ColumnType::Integer: return "Long";
        case ColumnType::Real: return "Double";
        case ColumnType::Boolean: return "Bit";
        case ColumnType::DateTime: return "DateTime";
    }
    return {};
}

// Which files could not be written last time. Nobody waits here: in the child of a fork it may be in use for
// ever.
class FailedFiles {
  public:
    bool Contains(const std::string& path) {
        const std::unique_lock lock(mutex_, std::try_to_lock);
        return lock && paths_.contains(path);
    }
    void Note(const std::string& path, bool failed) {
        constexpr std::size_t kMost = 1000;
        const std::unique_lock lock(mutex_, std::try_to_lock);
        if (!lock) return;
        if (!failed) {
            paths_.erase(path);
        } else if (paths_.size() < kMost) {
            paths_.insert(path);
        }
    }

  private:
    std::mutex mutex_;
    std::set<std::string> paths_;
};

FailedFiles& Failed() {
    static FailedFiles* const files = new FailedFiles;  // may be used while the process exits
    return *files;
}

struct SchemaPlace {
    std::string path;
    std::string section;
};

SchemaPlace PlaceOf(const std::string& fileName) {
    const platform::PathParts parts = platform::SplitPath(fileName);
    if (parts.directory.size() >= kLongestPart || parts.name.size() >= kLongestPart)
        throw FileError("input path too long", fileName);
    std::string folder(parts.drive);
    if (folder.empty()) {
        folder = platform::WorkingDirectory();
        if (!folder.empty()) folder += platform::PathSeparator();
    }
    return {folder.append(parts.directory) + "schema.ini", std::string(parts.name).append(parts.extension)};
}

void WriteSections(const std::string& path, std::span<const platform::ProfileSection> sections) {
    const bool failedBefore = Failed().Contains(path);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    std::uint32_t error = platform::SetProfileSections(path, sections);
    for (int attempts = 1; error != 0 && !failedBefore; ++attempts) {
        if (attempts >= kFewestAttempts && std::chrono::steady_clock::now() >= deadline) break;
        std::this_thread::sleep_for(kMoment);
        error = platform::SetProfileSections(path, sections);
    }
    Failed().Note(path, error != 0);
    if (error == 0) return;
    throw FileError("WritePrivateProfileString failed with errorcode " + std::to_string(error), path,
                    platform::SystemErrorText(error));
}

}  // namespace

std::string SchemaEntries(const std::vector<StreamingXml::XmlColumnInfo>& columns, char separator) {
    std::string entries;
    const auto add = [&](const std::string& entry) { entries.append(entry) += '\0'; };
    add("ColNameHeader=True");
    add(std::string("Format=Delimited(") + separator + ")");
    add("DecimalSymbol=.");
    add("DateTimeFormat=yy-m-d h:n:s");
    for (std::size_t i = 0; i < columns.size(); ++i) {
        add("col" + std::to_string(i + 1) + "=\"" + columns[i].name + "\" " +
            std::string(TypeName(columns[i].type)));
    }
    return entries;
}

void WriteSchemas(std::span<const TableSchema> tables) {
    std::map<std::string, std::vector<platform::ProfileSection>> files;
    std::exception_ptr failure;
    const auto attempt = [&](const auto& action) {
        try {
            action();
        } catch (const FileError&) {
            if (!failure) failure = std::current_exception();
        }
    };
    for (const TableSchema& table : tables) {
        attempt([&] {
            SchemaPlace place = PlaceOf(table.fileName);
            files[std::move(place.path)].push_back({std::move(place.section), table.entries});
        });
    }
    for (const auto& file : files) attempt([&] { WriteSections(file.first, file.second); });
    if (failure) std::rethrow_exception(failure);
}

}  // namespace Metrics::detail
