#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <optional>
#include <span>
#include <string_view>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

// Where the user half of a 48-bit address space ends. What lies above (the kernel's own call page) is not
// counted.
constexpr std::uint64_t kUserSpaceEnd = 0x7FFF'FFFF'F000;

// The kernel's line about the process's memory: seven numbers of pages, all that is mapped first, what may be
// written privately (data and stacks) sixth. Nothing when that is not what it says, or when all is zero: then
// it speaks of a thread that has ended.
std::optional<AddressSpaceTotals> ParseTotals(std::string_view line) {
    std::array<std::uint64_t, 7> pages;
    const char* at = line.data();
    const char* const end = at + line.size();
    for (std::uint64_t& number : pages) {
        const auto [next, error] = std::from_chars(at, end, number);
        const char closing = &number == &pages.back() ? '\n' : ' ';
        if (error != std::errc() || next == end || *next != closing) return std::nullopt;
        at = next + 1;
    }
    static const auto pageSize = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    const std::uint64_t mapped = pages[0] * pageSize;
    if (at != end || mapped == 0) return std::nullopt;
    const std::uint64_t committed = std::min(pages[5] * pageSize, mapped);
    const std::uint64_t total = std::max(kUserSpaceEnd, mapped);
    return AddressSpaceTotals{total, total - mapped, mapped - committed, committed};
}

using Buffer = std::array<char, 256>;

// Marks run here, which must not end in a cancellation.
class CancellationBlocker {
  public:
    CancellationBlocker() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancellationBlocker() { pthread_setcancelstate(before_, nullptr); }
    CancellationBlocker(const CancellationBlocker&) = delete;
    CancellationBlocker& operator=(const CancellationBlocker&) = delete;

  private:
    int before_ = 0;
};

// 0 to 2 are the host's standard streams, also when it has closed them.
int OpenBeyondStandardStreams(const char* path) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0 || file > STDERR_FILENO) return file;
    const int beyond = fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(file);
    return beyond;
}

std::optional<AddressSpaceTotals> ReadTotals(int file) {
    std::array<char, 256> buffer;
    const ssize_t length = pread(file, buffer.data(), buffer.size(), 0);
    if (length <= 0) return std::nullopt;
    return ParseTotals({buffer.data(), static_cast<std::size_t>(length)});
}

// The process's line is that of its first thread, which may have ended before the others.
std::optional<AddressSpaceTotals> ReadTotalsOfThisThread() {
    const int file = OpenBeyondStandardStreams("/proc/thread-self/statm");
    if (file < 0) return std::nullopt;
    const auto totals = ReadTotals(file);
    close(file);
    return totals;
}

// A descriptor of that line that stays open, since opening takes longer than all the rest. The host may close
// it, as programs do that close every descriptor, and then has its number for something else: so each use
// first makes sure whose it is, and one that was lost is forgotten, not closed. Device and inode number stay
// the file's own as long as it is open.
class KeptLine {
  public:
    std::optional<AddressSpaceTotals> Read() {
        const int file = file_.load(std::memory_order_acquire);
        if (!IsOurs(file)) return OpenAndRead();
        const auto totals = ReadTotals(file);
        return totals ? totals : ReadTotalsOfThisThread();
    }

    // It tells of the parent. Its number may be the host's by now, so it is not closed.
    void StartOverInChild() {
        file_.store(-1, std::memory_order_relaxed);
        isOpening_.store(false, std::memory_order_relaxed);
    }

  private:
    bool IsOurs(int file) const {
        struct stat status;
        return file >= 0 && fstat(file, &status) == 0 &&
               status.st_dev == device_.load(std::memory_order_relaxed) &&
               status.st_ino == inode_.load(std::memory_order_relaxed);
    }

    std::optional<AddressSpaceTotals> OpenAndRead() {
        const int file = OpenBeyondStandardStreams("/proc/self/statm");
        if (file < 0) return std::nullopt;
        const auto totals = ReadTotals(file);
        if (!totals || !Keep(file)) close(file);
        return totals ? totals : ReadTotalsOfThisThread();
    }

    // Of several threads that open it at a time one keeps it.
    bool Keep(int file) {
        if (isOpening_.exchange(true, std::memory_order_acquire)) return false;
        struct stat status;
        const bool isNeeded = !IsOurs(file_.load(std::memory_order_relaxed)) && fstat(file, &status) == 0;
        if (isNeeded) {
            device_.store(status.st_dev, std::memory_order_relaxed);
            inode_.store(status.st_ino, std::memory_order_relaxed);
            file_.store(file, std::memory_order_release);
        }
        isOpening_.store(false, std::memory_order_release);
        return isNeeded;
    }

    std::atomic<int> file_{-1};
    std::atomic<dev_t> device_{0};
    std::atomic<ino_t> inode_{0};
    std::atomic<bool> isOpening_{false};
};

constinit KeptLine keptLine;

[[maybe_unused]] const bool keptLineStartsOverInChild =
    (OnForkChild([] { keptLine.StartOverInChild(); }), true);

std::string_view ReadTable(const char* path, std::span<char> buffer) {
    const int file = OpenBeyondStandardStreams(path);
    if (file < 0) return {};
    std::size_t length = 0;
    ssize_t piece;
    while ((piece = read(file, buffer.data() + length, buffer.size() - length)) > 0) {
        length += static_cast<std::size_t>(piece);
    }
    close(file);
    return {buffer.data(), length};
}

// The figure of one line "Label:   1234 kB", in bytes; 0 without such a line.
std::uint64_t Figure(std::string_view table, std::string_view label) {
    const std::size_t found = table.find(label);
    if (found == std::string_view::npos) return 0;
    table.remove_prefix(found + label.size());
    table.remove_prefix(std::min(table.find_first_not_of(' '), table.size()));
    std::uint64_t kibibytes = 0;
    std::from_chars(table.data(), table.data() + table.size(), kibibytes);
    return kibibytes * 1024;
}

}  // namespace

AddressSpaceTotals QueryAddressSpace() {
    const CancellationBlocker blocker;
    return keptLine.Read().value_or(AddressSpaceTotals());
}

GlobalMemory QueryGlobalMemory() {
    const CancellationBlocker blocker;
    std::array<char, 4096> buffer;
    const std::string_view table = ReadTable("/proc/meminfo", buffer);

    GlobalMemory memory;
    memory.physicalTotal = Figure(table, "MemTotal:");
    memory.physicalAvailable = std::min(Figure(table, "MemAvailable:"), memory.physicalTotal);
    memory.commitLimit = Figure(table, "CommitLimit:");
    // Where overcommitment is allowed more may be promised than the limit.
    memory.commitAvailable =
        memory.commitLimit - std::min(Figure(table, "Committed_AS:"), memory.commitLimit);
    if (memory.physicalTotal != 0) {
        const std::uint64_t used = memory.physicalTotal - memory.physicalAvailable;
        memory.loadPercent = static_cast<std::uint32_t>(used * 100 / memory.physicalTotal);
    }
    return memory;
}

}  // namespace Metrics::platform
