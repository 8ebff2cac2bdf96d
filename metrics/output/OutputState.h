#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "metrics/MetricsOutput.h"
#include "metrics/manager/Core.h"
#include "metrics/output/EventRouter.h"
#include "metrics/output/TargetList.h"
#include "metrics/output/WriterFactory.h"
#include "metrics/platform/Platform.h"

namespace Metrics::detail {

// What an output is made of: shared by the output and by its callback, so that neither can lose it. Its lock
// is the last in the order of locks; host code that logs is only called after it was released.
class OutputState {
  public:
    using Mode = MetricsOutput::Mode;
    using Format = MetricsOutput::Format;

    OutputState(std::shared_ptr<detail::Core> core, Mode mode, Format format);

    detail::Core& Core() { return *core_; }
    Registration registration;  // set once, before the output is shared

    // The manager's callback.
    void ProcessBatch(const std::vector<MetricsEvent>& batch) noexcept;

    void OpenFile(const std::string& name, std::uint64_t contextId);
    void OpenStream(std::ostream* stream, std::uint64_t contextId);
    void SetWildcard(const std::string& pattern);
    void SetRootElement(const std::string& name);
    void SetRowDefinition(const std::string& definition);
    void MuteVolatileData();
    void SetHeldLimit(std::size_t bytes);

    // Hands on all that is ready; waits for a batch in progress.
    void Flush() noexcept;
    // Writes what forced closure releases.
    void Drain(std::uint64_t contextId) noexcept;
    // Writes everything, closes everything; nothing is written afterwards.
    void CloseDown() noexcept;
    bool IsClosed() const { return closed_; }

    void SetError(const std::string& message);
    std::vector<std::string> Errors() const;
    std::shared_ptr<MetricsValueBuffer> FindBuffer(std::uint64_t contextId) const;
    std::shared_ptr<MetricsValueBuffer> TakeBuffer(std::uint64_t contextId);

    // Frees the files that Borrowed made.
    void ReleaseStreams() noexcept;

  private:
    // Holds the lock; what is to be logged goes out after it.
    class Locked;

    bool Writes() const { return !closed_ && errors_.empty(); }
    // Runs an action under the lock and finishes the batch. What it throws becomes an error.
    template <class Action>
    void Guarded(Action action, bool flush = true) noexcept;

    OutputTarget MakeFileTarget(const std::string& name);
    OutputTarget& Open(OutputTarget target, std::uint64_t contextId);
    // A target that the host opened gets what is there already.
    void Begin(OutputTarget& target);
    void OpenForRoot(std::uint64_t rootId);

    void FinishBatch(bool flush = true);
    void CloseMarked();
    void StopRouting();
    void CloseAll();
    void AddError(std::string message);

    const std::shared_ptr<detail::Core> core_;
    const Mode mode_;
    mutable platform::RecursiveMutex lock_;
    std::atomic<bool> closed_{false};

    std::string wildcard_;
    bool misnested_ = false;  // to be told
    WriterSettings settings_;
    TargetList targets_;
    std::unique_ptr<EventRouter> router_;  // none for RawUnordered, after an error, once closed
    std::vector<std::unique_ptr<std::ostream>> streams_;  // made here and not owned by their targets
    std::vector<std::string> errors_;
    std::vector<std::string> problems_;  // become errors at the end of the batch
    std::vector<std::string> log_;
    std::string hint_;
    bool hasCutTexts_ = false;  // to be told
    std::map<std::uint64_t, std::shared_ptr<MetricsValueBuffer>> buffers_;
};

}  // namespace Metrics::detail
