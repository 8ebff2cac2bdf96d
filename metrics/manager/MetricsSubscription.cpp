#include "metrics/MetricsSubscription.h"

#include "metrics/manager/Core.h"

namespace Metrics {

MetricsSubscription::MetricsSubscription(MetricsEventCategory category, MetricsManager::Callback callback)
    : core_(detail::Core::Current()) {
    const auto registration = core_->Register(category, std::move(callback));
    id_ = registration.id;
    token_ = registration.token;
}

MetricsSubscription::~MetricsSubscription() {
    if (!core_->Inherited()) core_->Unregister({id_, token_});
}

}  // namespace Metrics
