#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

// Where the user half of a 48-bit address space ends. What lies above (the kernel's own call page) is not
// counted.
constexpr std::uint64_t kUserSpaceEnd = 0x7FFF'FFFF'F000;

// Adds up the kernel's list of mapped regions, one line each: "start-end rwxp ...". It takes the list in
// pieces of any size, because the file is read through a small buffer and what follows on a line may be long.
class RegionList {
  public:
    void Feed(std::string_view piece) {
        for (std::size_t at = 0; at < piece.size(); ++at) {
            if (field_ == Field::Rest) {
                at = piece.find('\n', at);
                if (at == piece.npos) return;
                BeginLine();
            } else {
                Feed(piece[at]);
            }
        }
    }

    AddressSpaceTotals Totals() const {
        AddressSpaceTotals totals = totals_;
        const std::uint64_t used = totals.reserved + totals.committed;
        totals.total = std::max(kUserSpaceEnd, used);
        totals.free = totals.total - used;
        return totals;
    }

  private:
    enum class Field { Start, End, Rights, Rest };

    void Feed(char c) {
        switch (field_) {
            case Field::Start: return FeedAddress(start_, c, '-', Field::End);
            case Field::End: return FeedAddress(end_, c, ' ', Field::Rights);
            case Field::Rights: return FeedRights(c);
            case Field::Rest: return;
        }
    }

    void FeedAddress(std::uint64_t& address, char c, char closing, Field next) {
        if (c == closing) {
            field_ = next;
        } else {
            const auto digit = static_cast<std::uint64_t>(c <= '9' ? c - '0' : c - 'a' + 10);
            address = address * 16 + digit;
        }
    }

    void FeedRights(char c) {
        hasRights_ = hasRights_ || c == 'r' || c == 'w' || c == 'x';
        if (c != ' ') return;
        if (start_ < kUserSpaceEnd) (hasRights_ ? totals_.committed : totals_.reserved) += end_ - start_;
        field_ = Field::Rest;
    }

    void BeginLine() {
        start_ = end_ = 0;
        hasRights_ = false;
        field_ = Field::Start;
    }

    AddressSpaceTotals totals_;
    std::uint64_t start_ = 0;
    std::uint64_t end_ = 0;
    bool hasRights_ = false;
    Field field_ = Field::Start;
};

// Hands the file to `consume` in pieces; nothing when it cannot be opened.
template <class Consume>
bool ReadInPieces(const char* path, Consume consume) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    std::array<char, 4096> buffer;
    ssize_t length;
    while ((length = read(file, buffer.data(), buffer.size())) > 0) {
        consume(std::string_view(buffer.data(), static_cast<std::size_t>(length)));
    }
    close(file);
    return length == 0;
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
    RegionList regions;
    const bool isRead =
        ReadInPieces("/proc/self/maps", [&regions](std::string_view piece) { regions.Feed(piece); });
    return isRead ? regions.Totals() : AddressSpaceTotals();
}

GlobalMemory QueryGlobalMemory() {
    std::array<char, 4096> buffer;
    std::size_t length = 0;
    ReadInPieces("/proc/meminfo", [&](std::string_view piece) {
        length += piece.copy(buffer.data() + length, buffer.size() - length);
    });
    const std::string_view table(buffer.data(), length);

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
