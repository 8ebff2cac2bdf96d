#include "metrics/rows/SchemaFile.h"

#include <chrono>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "metrics/platform/Platform.h"

namespace Metrics::detail {
namespace {

constexpr std::size_t kLongestPart = 255;
constexpr int kAttempts = 5;
constexpr auto kPause = std::chrono::milliseconds(250);
// Other writers hold the file for a millisecond or so; this long an attempt makes way for them.
constexpr int kTriesPerAttempt = 20;
constexpr auto kMoment = std::chrono::milliseconds(2);

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

// Which files could not be written last time.
class FailedFiles {
  public:
    bool Contains(const std::string& path) {
        const std::lock_guard lock(mutex_);
        return paths_.contains(path);
    }
    void Note(const std::string& path, bool failed) {
        constexpr std::size_t kMost = 1000;
        const std::lock_guard lock(mutex_);
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

// 0 or the system's error code.
std::uint32_t Attempt(const std::string& path, const std::string& section, const std::string& entries,
                      int tries) {
    std::uint32_t error = 0;
    while ((error = platform::SetProfileSection(path, section, entries)) != 0 && --tries > 0)
        std::this_thread::sleep_for(kMoment);
    return error;
}

struct SchemaPlace {
    std::string path;
    std::string section;
};

SchemaPlace PlaceOf(const std::string& fileName) {
    const platform::PathParts parts = platform::SplitPath(fileName);
    if (parts.directory.size() >= kLongestPart || parts.name.size() >= kLongestPart)
        throw std::runtime_error("input path too long");
    std::string folder(parts.drive);
    if (folder.empty()) {
        folder = platform::WorkingDirectory();
        if (!folder.empty()) folder += platform::PathSeparator();
    }
    return {folder.append(parts.directory) + "schema.ini", std::string(parts.name).append(parts.extension)};
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

void WriteSchema(const std::string& fileName, const std::vector<StreamingXml::XmlColumnInfo>& columns,
                 char separator) {
    const SchemaPlace place = PlaceOf(fileName);
    const std::string entries = SchemaEntries(columns, separator);
    const bool failedBefore = Failed().Contains(place.path);
    std::uint32_t error = Attempt(place.path, place.section, entries, failedBefore ? 1 : kTriesPerAttempt);
    for (int attempt = 1; error != 0 && !failedBefore; ++attempt) {
        std::this_thread::sleep_for(kPause);
        if (attempt == kAttempts) break;
        error = Attempt(place.path, place.section, entries, kTriesPerAttempt);
    }
    Failed().Note(place.path, error != 0);
    if (error != 0) {
        throw std::runtime_error("WritePrivateProfileString failed with errorcode " + std::to_string(error));
    }
}

}  // namespace Metrics::detail
