#include "metrics/manager/queue/Overload.h"

#include <algorithm>

namespace Metrics::detail {

namespace {

constexpr std::uint64_t kLowestStart = std::uint64_t{8} << 20;

// Limits come from the host: what is multiplied must not overflow.
std::uint64_t Times(std::uint64_t factor, std::uint64_t bytes) {
    return bytes > UINT64_MAX / factor ? UINT64_MAX : factor * bytes;
}

}  // namespace

std::uint64_t SlowedFrom(const OverloadLimit& limit, std::uint64_t paceBytes) noexcept {
    if (paceBytes == 0) return limit.bytes;
    return std::min(std::max(paceBytes / 2, kLowestStart), limit.bytes);
}

std::uint64_t DroppedFrom(const OverloadLimit& limit, MarkKind kind) noexcept {
    if (limit.policy == OverloadPolicy::Grow) return UINT64_MAX;
    return Times(kind == MarkKind::Opening ? 2 : 3, limit.bytes);
}

int SlicesToWait(const OverloadLimit& limit, const Pressure& pressure, MarkKind kind) noexcept {
    const bool mayWait = limit.policy == OverloadPolicy::Wait && kind != MarkKind::OfLibrary &&
                         !pressure.onWorkerThread && pressure.takes;
    if (!mayWait || pressure.ownBytes < kTwoBlocks) return 0;
    const std::uint64_t from = SlowedFrom(limit, pressure.paceBytes);
    if (pressure.waitingBytes < from) return 0;
    const std::uint64_t most = Times(2, limit.bytes);
    const double beyond = static_cast<double>(pressure.waitingBytes - from);
    const double range = static_cast<double>(std::max<std::uint64_t>(most - from, 1));
    return 1 + static_cast<int>(std::min(beyond / range, 1.0) * (kMostSlices - 1));
}

bool IsAdmitted(const OverloadLimit& limit, const Pressure& pressure, MarkKind kind) noexcept {
    return pressure.ownBytes < kTwoBlocks || pressure.waitingBytes < DroppedFrom(limit, kind);
}

bool WakesWorker(const OverloadLimit& limit, std::uint64_t waitingBytes, std::uint64_t added) noexcept {
    const std::uint64_t eighth = std::max<std::uint64_t>(limit.bytes / 8, 1);
    return waitingBytes / eighth != (waitingBytes - added) / eighth;
}

}  // namespace Metrics::detail
