#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "metrics/platform/Platform.h"
#include "metrics/platform/posix/File.h"
#include "metrics/platform/posix/ProfileText.h"

namespace Metrics::platform {

namespace {

constexpr std::size_t kLargestFile = std::size_t{16} << 20;

// The lock that all writers of a folder's profiles share, taken at once or not at all. It is the folder's
// own, so no lock file stays behind. A file system without such locks goes without.
class FolderLock {
  public:
    explicit FolderLock(const std::string& folder) : folder_(folder, O_RDONLY | O_DIRECTORY) {
        error_ = folder_.Error();
        const bool held = error_ == 0 && flock(folder_.Handle(), LOCK_EX | LOCK_NB) != 0;
        if (held && errno == EWOULDBLOCK) error_ = EWOULDBLOCK;
    }
    // Closing would not do while a forked child has a copy of the descriptor.
    ~FolderLock() {
        if (error_ == 0) flock(folder_.Handle(), LOCK_UN);
    }

    std::uint32_t Error() const { return error_; }

  private:
    File folder_;
    std::uint32_t error_;
};

bool IsSame(const struct stat& a, const struct stat& b) {
    return a.st_ino == b.st_ino && a.st_dev == b.st_dev && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// A profile file and what is known of it from the last time. Only to be used under its folder's lock.
class Profile {
  public:
    std::uint32_t Set(const std::string& path, std::span<const ProfileSection> sections);

  private:
    // What is to become of the file: sections by where the old ones begin, and what is added at its end.
    struct Replacement {
        std::size_t end;  // of the old one
        std::string section;
    };
    struct Changes {
        std::map<std::size_t, Replacement> replaced;
        std::string added;
    };

    std::uint32_t Update(const File& file);
    std::uint32_t Compare(const File& file, const ProfileSection& section, Changes& changes) const;
    std::uint32_t Append(const std::string& path, const std::string& added) const;
    std::uint32_t Replace(const std::string& path, const File& file, const Changes& changes) const;
    std::uint32_t WriteAnew(const std::string& path, std::string_view text) const;

    struct stat status_ {};
    ProfileIndex index_;
};

// Those that count: of several with one name the last.
std::vector<const ProfileSection*> Latest(std::span<const ProfileSection> sections) {
    std::vector<const ProfileSection*> latest;
    std::unordered_map<std::string, std::size_t> places;
    for (const ProfileSection& section : sections) {
        const auto [place, isNew] = places.try_emplace(ProfileIndex::Key(section.name), latest.size());
        if (isNew) latest.emplace_back();
        latest[place->second] = &section;
    }
    return latest;
}

std::uint32_t Profile::Set(const std::string& path, std::span<const ProfileSection> sections) {
    const File file(path, O_RDONLY | O_NONBLOCK);
    if (file.Error() == ENOENT) {
        *this = {};
    } else if (file.Error() != 0) {
        return file.Error();
    } else if (const std::uint32_t error = Update(file)) {
        *this = {};
        return error;
    }
    Changes changes;
    for (const ProfileSection* section : Latest(sections))
        if (const std::uint32_t error = Compare(file, *section, changes)) return error;
    if (!changes.replaced.empty()) return Replace(path, file, changes);
    return changes.added.empty() ? 0 : Append(path, std::string(index_.Joint()) + changes.added);
}

std::uint32_t Profile::Compare(const File& file, const ProfileSection& section, Changes& changes) const {
    std::string wanted = index_.Format(section.name, section.entries);
    const ProfileIndex::Extent* old = index_.Find(section.name);
    if (old == nullptr) {
        changes.added += wanted;
        return 0;
    }
    std::string present;
    if (const std::uint32_t error = file.Read(old->begin, old->end - old->begin, present)) return error;
    if (present != wanted) changes.replaced[old->begin] = {old->end, std::move(wanted)};
    return 0;
}

// Anything but a plain file of a sensible size is an error.
std::uint32_t Profile::Update(const File& file) {
    const struct stat before = std::exchange(status_, {});
    struct stat now {};
    if (fstat(file.Handle(), &now) != 0) return static_cast<std::uint32_t>(errno);
    if (!S_ISREG(now.st_mode)) return EINVAL;
    if (now.st_size > static_cast<off_t>(kLargestFile)) return EFBIG;
    if (!IsSame(before, now)) {
        const bool grown =
            before.st_ino == now.st_ino && before.st_dev == now.st_dev && before.st_size < now.st_size;
        const std::size_t from = grown ? index_.ReadOnFrom() : 0;
        std::string text;
        if (const std::uint32_t error = file.Read(from, kLargestFile, text)) return error;
        if (!grown) {
            index_.Read(text);
        } else if (!index_.ReadOn(text)) {
            return Update(file);  // as one that it knows nothing of
        }
    }
    status_ = now;
    return 0;
}

// What does not get into the file as a whole is taken back.
std::uint32_t Profile::Append(const std::string& path, const std::string& added) const {
    File file(path, O_WRONLY | O_APPEND | O_CREAT, 0666);
    if (file.Error() != 0) return file.Error();
    std::uint32_t error = file.Write(added);
    if (error == 0) error = file.Close();
    if (error != 0 && truncate(path.c_str(), status_.st_size) != 0) return static_cast<std::uint32_t>(errno);
    return error;
}

std::uint32_t Profile::Replace(const std::string& path, const File& file, const Changes& changes) const {
    std::string old;
    if (const std::uint32_t error = file.Read(0, kLargestFile, old)) return error;
    std::string text;
    std::size_t at = 0;
    for (const auto& [begin, replacement] : changes.replaced) {
        text.append(old, at, begin - at).append(replacement.section);
        at = replacement.end;
    }
    text.append(old, at);
    if (!changes.added.empty() && !text.ends_with('\n')) text += index_.Joint();
    return WriteAnew(path, text + changes.added);
}

// Others see the old file or the new one, never a part: written beside it, then renamed over it.
std::uint32_t Profile::WriteAnew(const std::string& path, std::string_view text) const {
    const std::string beside = path + "." + std::to_string(CurrentProcessId()) + ".tmp";
    File replacement(beside, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0666);
    if (replacement.Error() != 0) return replacement.Error();
    const auto failed = [](int result) { return result != 0 ? static_cast<std::uint32_t>(errno) : 0; };
    std::uint32_t error = failed(fchmod(replacement.Handle(), status_.st_mode & 07777));
    if (error == 0) error = replacement.Write(text);
    if (error == 0) error = replacement.Close();
    if (error == 0) error = failed(std::rename(beside.c_str(), path.c_str()));
    if (error != 0) unlink(beside.c_str());
    return error;
}

// The path behind symbolic links, so that the file is replaced and not the link.
std::string Resolved(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::string(resolved.get()) : path;
}

// The files written last.
class KnownProfiles {
  public:
    static KnownProfiles& Get() {
        static KnownProfiles* const profiles = new KnownProfiles;  // may be used while the process exits
        return *profiles;
    }
    std::unique_lock<std::mutex> TryLock() { return std::unique_lock(mutex_, std::try_to_lock); }
    Profile& Of(const std::string& path) {
        constexpr std::size_t kMost = 8;
        if (profiles_.size() >= kMost && !profiles_.contains(path)) profiles_.clear();
        return profiles_[path];
    }

  private:
    std::mutex mutex_;
    std::map<std::string, Profile> profiles_;
};

}  // namespace

std::uint32_t SetProfileSections(const std::string& path, std::span<const ProfileSection> sections) {
    for (const ProfileSection& section : sections)
        if (section.name.find('\n') != std::string::npos) return EINVAL;  // it would end the header line
    const std::string target = Resolved(path);
    const PathParts parts = SplitPath(target);
    const FolderLock folder(std::string(parts.drive).append(parts.directory));
    if (folder.Error() != 0) return folder.Error();
    // Who finds the known ones in use (in the child of a fork that may be for ever) starts from nothing.
    const std::unique_lock lock = KnownProfiles::Get().TryLock();
    Profile fresh;
    return (lock ? KnownProfiles::Get().Of(target) : fresh).Set(target, sections);
}

}  // namespace Metrics::platform
