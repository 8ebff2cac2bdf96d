#pragma once

#include <cstddef>
#include <cstdint>

#include "metrics/Context.h"
#include "metrics/Export.h"

namespace Metrics {

/// Attaches a context to the calling thread for a block, where a thread works for a context now and then:
///
///     const ContextGuard guard(request);      // other marks of this block belong to the request
///
/// The end of the block leaves thread and context as they were found: the order of the contexts on the thread
/// and which one is current, and the context's own thread id and enabled flag. A context that closed
/// meanwhile stays off the thread. Where it is the current one already nothing changes. Guards nest, of one
/// context too. The context may be destroyed before the guard. A guard ends on the thread that it began on.
class METRICS_API ContextGuard {
  public:
    explicit ContextGuard(Context& context);
    ~ContextGuard();
    ContextGuard(const ContextGuard&) = delete;
    ContextGuard& operator=(const ContextGuard&) = delete;

  private:
    detail::ContextState* const state_;
    std::uint64_t serial_ = 0;  // of the thread's record
    // How they were found.
    bool wasOnStack_ = false;
    bool wasCurrent_ = false;
    std::size_t index_ = 0;
    const detail::ContextState* above_ = nullptr;
    bool wasClosed_;
    bool wasEnabled_;
    std::uint32_t threadId_;
};

}  // namespace Metrics
