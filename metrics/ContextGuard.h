#pragma once

#include "metrics/Context.h"

namespace Metrics {

/// Attaches a context to the calling thread for a block, where a thread works for a context now and then.
/// Where it is the current one already, it does nothing.
class ContextGuard {
  public:
    explicit ContextGuard(Context& context) : context_(context), attaches_(Context::Current() != &context) {
        if (attaches_) context_.AttachToThread();
    }
    ~ContextGuard() {
        if (attaches_) context_.DetachFromThread();
    }
    ContextGuard(const ContextGuard&) = delete;
    ContextGuard& operator=(const ContextGuard&) = delete;

  private:
    Context& context_;
    const bool attaches_;
};

}  // namespace Metrics
