#pragma once

#include <utility>

#include "metrics/MetricsManager.h"

namespace Metrics {

/// A subscription that ends with its scope. It may outlive the manager's run: what `Shutdown` removed is not
/// removed again, nor is another subscription that got the same id.
class METRICS_API MetricsSubscription {
  public:
    MetricsSubscription(MetricsEventCategory category, MetricsManager::Callback callback);
    ~MetricsSubscription();
    MetricsSubscription(const MetricsSubscription&) = delete;
    MetricsSubscription& operator=(const MetricsSubscription&) = delete;

    /// The id under which the manager knows it.
    int Id() const { return id_; }

  private:
    std::shared_ptr<detail::Core> core_;
    int id_;
    std::uint64_t token_;
};

}  // namespace Metrics
