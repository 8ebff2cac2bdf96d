#include "metrics/manager/Process.h"

#include <mutex>

#include "metrics/MetricsManager.h"
#include "metrics/base/OnePerProcess.h"
#include "metrics/manager/Core.h"
#include "metrics/manager/ThreadContext.h"
#include "metrics/platform/Platform.h"

namespace Metrics {

namespace detail {

constinit std::atomic<std::uint64_t> managerGeneration{1};

namespace {

constinit std::atomic<std::uint64_t> forkDepth{0};

// What the process knows of its manager.
struct Process {
    std::mutex mutex;
    std::shared_ptr<Core> core;
    std::atomic<MetricsManager*> manager{nullptr};
};

constinit OnePerProcess<Process> theProcess;

[[maybe_unused]] const bool startsOverInChild = (platform::OnForkChild(&Core::StartOverInChild), true);

}  // namespace

std::pair<std::shared_ptr<Core>, std::uint64_t> CurrentCoreAndGeneration() {
    Process& process = theProcess.Get();
    const std::lock_guard lock(process.mutex);
    return {process.core, managerGeneration.load()};
}

std::uint64_t ForkDepth() {
    return forkDepth.load(std::memory_order_relaxed);
}

// The manager may be freed by another thread at any moment; its core is only taken from who holds it.
std::shared_ptr<Core> Core::Current() {
    const MetricsThreadContext* record = ThreadRecord();
    if (record != nullptr && record->Core()) return record->Core();
    for (;;) {
        if (auto core = CurrentCoreAndGeneration().first) return core;
        MetricsManager::GetInstance();
    }
}

// Only the forking thread came along: any lock may be held for ever by one that did not, so none is taken.
// What the parent's threads were working on is left as it is, and its core, which the old holder keeps, is
// never freed here.
void Core::StartOverInChild() {
    ++forkDepth;
    if (const Process* old = theProcess.IfMade()) {
        MetricsManager* manager = old->manager;
        theProcess.StartOverInChild();
        if (manager != nullptr) {
            Process& process = theProcess.Get();
            process.core = manager->core_->CloneForChild();
            manager->core_ = process.core;
            process.manager = manager;
        }
    }
    ++managerGeneration;
}

}  // namespace detail

using detail::Core;
using detail::theProcess;

MetricsManager& MetricsManager::GetInstance() {
    auto& process = theProcess.Get();
    if (MetricsManager* manager = process.manager.load(std::memory_order_acquire)) return *manager;
    const std::lock_guard lock(process.mutex);
    if (MetricsManager* manager = process.manager) return *manager;
    auto* manager = new MetricsManager;
    process.core = manager->core_;
    process.manager.store(manager, std::memory_order_release);
    ++detail::managerGeneration;
    return *manager;
}

void MetricsManager::FreeInstance() {
    auto& process = theProcess.Get();
    std::shared_ptr<Core> core;
    MetricsManager* manager = nullptr;
    {
        const std::lock_guard lock(process.mutex);
        core = std::move(process.core);
        manager = process.manager.exchange(nullptr);
        ++detail::managerGeneration;
    }
    if (manager == nullptr) return;
    core->Abandon();
    delete manager;
}

}  // namespace Metrics
