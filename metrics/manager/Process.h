#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace Metrics::detail {

class Core;

/// Changes whenever threads must look for the manager again: it was created or freed, or this is a fork's
/// child. Never 0.
extern constinit std::atomic<std::uint64_t> managerGeneration;

/// The core that marks go to now (null without a manager) and the generation it belongs to.
std::pair<std::shared_ptr<Core>, std::uint64_t> CurrentCoreAndGeneration();

/// How many forks lie between the first process and this one.
std::uint64_t ForkDepth();

}  // namespace Metrics::detail
