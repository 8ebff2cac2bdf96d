#include "metrics/Session.h"

#include "metrics/manager/Core.h"

namespace Metrics {

Session::Session() {
    auto& manager = MetricsManager::GetInstance();
    manager.Start();
    manager.SetState(MetricsManager::Collecting, true);
}

Session::~Session() {
    const auto core = detail::CurrentCoreAndGeneration().first;
    if (!core) return;  // it was freed meanwhile
    core->WaitDelivered();
    core->Shutdown();
    core->ChangeState(0, MetricsManager::Collecting);
}

}  // namespace Metrics
