#include "metrics/manager/Core.h"

#include <algorithm>

#include "metrics/Gate.h"
#include "metrics/bits/BitsTable.h"
#include "metrics/manager/ThreadContext.h"
#include "metrics/manager/Worker.h"

namespace Metrics::detail {

constinit std::atomic<unsigned long long> enableMask{0xFFF};

namespace {

// Of the process, whatever managers it has had.
constinit std::atomic<bool> hadLogDelegate{false};
constinit std::atomic<bool> hasShownError{false};

// What comes from a file's name must not look like a second line.
std::string AsLine(std::string text) {
    constexpr std::size_t kLongest = 900;
    text.resize(std::min(text.size(), kLongest));
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ') c = ' ';
    return text + '\n';
}

void LogUnknownMnemonics(const std::string& mnemonics) {
    const std::shared_ptr<Core> core = CurrentCoreAndGeneration().first;
    if (!core) return;
    core->LogFilterError();  // it may be why
    core->LogOnce(Core::UnknownMnemonic, "MetricsBitsUtils: unknown mnemonics: " + mnemonics);
}

}  // namespace

Core::Core() : forkDepth_(ForkDepth()) {
    SetUnknownMnemonicHandler(LogUnknownMnemonics);
}

Core::~Core() = default;

std::shared_ptr<Core> Core::CloneForChild() const {
    auto child = std::make_shared<Core>();
    child->componentId_ = componentId_.load();
    child->threadInit_ = threadInit_;
    child->logDelegate_ = logDelegate_;
    child->workingDirectory_ = workingDirectory_;
    child->state_ = state_ & MetricsManager::Collecting;
    return child;
}

void Core::ChangeState(std::uint32_t on, std::uint32_t off) {
    state_.fetch_or(on);
    state_.fetch_and(~off);
    wake_.set();
    progress_.Notify();
}

void Core::SetThreadInitFunction(std::function<void()> function) {
    auto shared = std::make_shared<const std::function<void()>>(std::move(function));
    const std::lock_guard lock(settings_);
    threadInit_.swap(shared);
}

std::shared_ptr<const std::function<void()>> Core::ThreadInitFunction() const {
    const std::lock_guard lock(settings_);
    return threadInit_;
}

void Core::SetLogDelegate(std::function<void(const std::string&)> delegate) {
    auto shared = std::make_shared<const std::function<void(const std::string&)>>(std::move(delegate));
    hadLogDelegate = true;
    const std::lock_guard lock(settings_);
    logDelegate_.swap(shared);
}

void Core::Log(const std::string& message) noexcept {
    try {
        std::shared_ptr<const std::function<void(const std::string&)>> delegate;
        {
            const std::lock_guard lock(settings_);
            delegate = logDelegate_;
        }
        if (delegate && *delegate) (*delegate)("MX: " + message);
    } catch (...) {
        // A log that fails must not fail what it tells of.
    }
}

void Core::LogError(const std::string& message) noexcept {
    Log(message);
    if (hadLogDelegate || ForkDepth() != 0 || hasShownError.exchange(true)) return;
    try {
        platform::WriteErrorLine(AsLine("MX: " + message));
    } catch (...) {
        // No memory for the line.
    }
}

void Core::LogOnce(Hint hint, const std::string& message) noexcept {
    if ((hintsGiven_.fetch_or(hint) & hint) == 0) Log(message);
}

void Core::LogFilterError() noexcept {
    const std::exception_ptr error = FilterError();
    if (!error) return;
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& what) {
        LogOnce(DamagedFilters, what.what());
    }
}

void Core::CountDropped() noexcept {
    dropped_.fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t Core::NextContextId() {
    if (!Is(MetricsManager::Collecting)) return 0;
    return contextIds_.fetch_add(1, std::memory_order_relaxed) + 1;
}

MetricsStatistics Core::Statistics() const {
    MetricsStatistics statistics;
    statistics.queued = queue_.Size();
    statistics.delivered = delivered_;
    statistics.posted = statistics.delivered + statistics.queued;
    statistics.dropped = dropped_;
    statistics.batches = batches_;
    statistics.largestBatch = largestBatch_;
    statistics.leftOut = leftOut_ + MetricsThreadContext::CountLeftOut(*this);
    return statistics;
}

void Core::PostRemoteChange(const RemoteChange& change) {
    if (!Is(MetricsManager::Running)) return;
    const std::lock_guard lock(settings_);
    remoteChanges_.push_back(change);
    hasRemoteChanges_ = true;
}

void Core::ApplyRemoteChanges() {
    if (!hasRemoteChanges_) return;
    std::vector<RemoteChange> changes;
    {
        const std::lock_guard lock(settings_);
        changes.swap(remoteChanges_);
        hasRemoteChanges_ = false;
    }
    for (const RemoteChange& change : changes) ApplyRemoteChange(change);
}

void Core::ApplyRemoteChange(const RemoteChange& change) {
    constexpr auto kRelaxed = std::memory_order_relaxed;
    const auto mask = enableMask.load(kRelaxed);
    switch (change.type) {
        case MetricsEventType::SetBits: enableMask.store(mask | change.first, kRelaxed); break;
        case MetricsEventType::SetBitsAbsolute: enableMask.store(change.first, kRelaxed); break;
        case MetricsEventType::ClearBits: enableMask.store(mask & ~change.first, kRelaxed); break;
        case MetricsEventType::ContextIdBase:
            contextIds_.store(change.first, kRelaxed);
            idBaseExtra_.store(change.second, kRelaxed);
            ChangeState(0, MetricsManager::IdBasePending);
            if (change.first != 0) {
                ChangeState(MetricsManager::IdBaseSet, 0);
            } else {
                ChangeState(0, MetricsManager::IdBaseSet);
            }
            break;
        default: break;
    }
}

}  // namespace Metrics::detail
