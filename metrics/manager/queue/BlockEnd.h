#pragma once

#include <cstdint>

#include "metrics/manager/queue/Overload.h"

namespace Metrics::detail {

/// What a mark does at the end of a block, before it begins, holding nothing of the library: waits its
/// slices, as long as the worker takes events, and says whether the mark gets a place.
///
/// `look` gives the `Pressure` of the moment, `progress` a number that grows whenever the worker takes
/// something, `sleep` lets a slice pass.
template <class Look, class Progress, class Sleep>
bool PassBlockEnd(const OverloadLimit& limit, MarkKind kind, Look look, Progress progress, Sleep sleep) {
    // The thread may hold a lock that a callback wants: one that takes nothing for so long isn't waited for.
    constexpr int kPatience = 5;
    Pressure pressure = look();
    auto before = progress();
    for (int slices = 0, idle = 0; idle < kPatience; ++slices) {
        if (slices >= SlicesToWait(limit, pressure, kind)) break;
        sleep();
        const auto now = progress();
        idle = now == before ? idle + 1 : 0;
        before = now;
        pressure = look();
    }
    return IsAdmitted(limit, pressure, kind);
}

/// Finds out, for a thread that marks now and then, that something of it has waited for 100 ms and more.
/// Asked at a tick of the coarse clock, which is when the thread draws.
class StaleWatch {
  public:
    static constexpr std::int64_t kPatienceMs = 100;

    /// `filled` and `waiting` are the thread's elements, ever and not taken. True when those that were there
    /// at the last check, so long ago, are not all taken: the worker should be woken.
    bool IsStale(std::int64_t nowMs, std::uint64_t filled, std::uint64_t waiting) noexcept {
        if (nowMs - checkedMs_ < kPatienceMs && nowMs >= checkedMs_) return false;
        const bool stale = filled - waiting < filled_;
        checkedMs_ = nowMs;
        filled_ = filled;
        return stale;
    }

  private:
    std::int64_t checkedMs_ = 0;
    std::uint64_t filled_ = 0;  // at that time
};

}  // namespace Metrics::detail
