#pragma once

#include <cstdint>

namespace Metrics::detail {

/// What happens to marks while the worker can't keep up.
enum class OverloadPolicy : std::uint8_t {
    Wait,  // they are slowed, and dropped when that does not help
    Drop,  // they are dropped
    Grow   // neither: memory grows
};

struct OverloadLimit {
    OverloadPolicy policy = OverloadPolicy::Wait;
    std::uint64_t bytes = std::uint64_t{64} << 20;
};

/// What a mark wants a place for.
enum class MarkKind : std::uint8_t {
    Opening,   // of a scope or context, or a value
    Closing,   // of what was opened: let in longer, so that trees stay whole
    OfLibrary  // an event that no thread of the host is waiting behind: never slowed
};

/// What is known when a mark has come to the end of a block. `paceBytes` is what the worker takes in a second
/// while it is busy, 0 when that isn't known.
struct Pressure {
    std::uint64_t waitingBytes = 0;  // in full blocks, over all queues
    std::uint64_t ownBytes = 0;      // of those that come from this thread
    std::uint64_t paceBytes = 0;
    bool takes = false;  // whether the worker takes events at the moment
    bool onWorkerThread = false;
};

/// Threads with less than this waiting are neither slowed nor cut: it is others who are in the way.
inline constexpr std::uint64_t kTwoBlocks = std::uint64_t{64} << 10;

/// Waiting bytes from which on threads are slowed: what the worker takes in half a second, between 8 MiB and
/// the limit.
std::uint64_t SlowedFrom(const OverloadLimit& limit, std::uint64_t paceBytes) noexcept;

/// Waiting bytes from which on a mark is dropped. Never with `Grow`.
std::uint64_t DroppedFrom(const OverloadLimit& limit, MarkKind kind) noexcept;

/// For how many slices of `kSliceMs` a mark waits at the end of a block, before it begins: the more the more
/// waits, at most 50. It is asked again after each slice, because the worker may have stopped to take events
/// meanwhile, over a lock that this thread holds.
int SlicesToWait(const OverloadLimit& limit, const Pressure& pressure, MarkKind kind) noexcept;
inline constexpr int kSliceMs = 2;
inline constexpr int kMostSlices = 50;

/// Whether a mark gets a place, after it has waited as long as it should.
bool IsAdmitted(const OverloadLimit& limit, const Pressure& pressure, MarkKind kind) noexcept;

/// Whether who adds a block to `waitingBytes` wakes the worker: by coming to an eighth of the limit, or to
/// each further one.
bool WakesWorker(const OverloadLimit& limit, std::uint64_t waitingBytes, std::uint64_t added) noexcept;

}  // namespace Metrics::detail
