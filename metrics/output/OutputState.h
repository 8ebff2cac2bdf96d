#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "metrics/MetricsOutput.h"
#include "metrics/manager/Core.h"
#include "metrics/output/EventRouter.h"
#include "metrics/output/FileTarget.h"
#include "metrics/output/Notices.h"
#include "metrics/output/TargetHints.h"
#include "metrics/output/TargetList.h"
#include "metrics/output/WriterFactory.h"
#include "metrics/platform/Platform.h"
#include "metrics/rows/SchemaFile.h"

namespace Metrics::detail {

// What an output is made of: shared by the output and by its callback, so that neither can lose it. Its lock
// is the last in the order of locks. Files are opened, and schema.ini is written, without it; so is what
// there is to say told.
class OutputState {
  public:
    using Mode = MetricsOutput::Mode;
    using Format = MetricsOutput::Format;

    OutputState(std::shared_ptr<detail::Core> core, Mode mode, Format format);

    detail::Core& Core() { return *core_; }
    Registration registration;  // set once, before the output is shared

    // The manager's callback.
    void ProcessBatch(const std::vector<MetricsEvent>& batch) noexcept;

    // `isNew` says that nothing of the context has been posted yet.
    void OpenFile(const std::string& name, std::uint64_t contextId, bool isNew = false);
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
    // What is left to do, with no lock held, after one of these three: they may have run under the manager's.
    void Conclude() noexcept;
    bool IsClosed() const { return closed_; }

    void SetErrorHandler(ErrorHandler handler);
    void SetError(const std::string& message);
    // For what costs a row or an element and must not stop the output: goes to the log and to the error
    // handler, once the lock is free, and not to Errors(). For writers and the router, under the lock. It
    // says which file or context is concerned; whoever calls counts, and calls once for many.
    void Remark(std::string text) noexcept;
    std::vector<std::string> Errors() const;
    std::shared_ptr<MetricsValueBuffer> FindBuffer(std::uint64_t contextId) const;
    std::shared_ptr<MetricsValueBuffer> TakeBuffer(std::uint64_t contextId);

    // Frees the files that Borrowed made.
    void ReleaseStreams() noexcept;

  private:
    class Locked;
    class Teller;
    bool Writes() const { return !closed_ && errors_.empty(); }
    // Runs an action under the lock and finishes the batch. What it throws becomes an error.
    template <class Action>
    void Guarded(Action action, bool flush = true) noexcept;
    // Runs what opens a target for the host. What it throws is told as well, and thrown on.
    template <class Action>
    void Opens(const std::string& destination, Action action);

    // These two without the lock.
    bool MayOpen(const std::string& name, WriterSettings& settings);
    FileTargets PrepareFiles(const std::vector<MetricsEvent>& batch) noexcept;

    // A target that the host opened gets what is there already.
    void Begin(OutputTarget& target, bool isNew);
    void OpenForRoot(std::uint64_t rootId);
    OutputTarget TargetForRoot(std::uint64_t rootId);
    void HintAtDefinition(const std::string& destination);
    void HintAtContext(std::uint64_t contextId, bool isNew);
    void CheckAwaited(bool last);
    void WriteDueSchemas() noexcept;
    void Tell() noexcept;

    void FinishBatch(bool flush = true);
    void CloseMarked();
    void StopRouting();
    void CloseAll();
    void AddError(std::string message);
    void KeepError(std::string message);

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
    std::map<std::uint64_t, std::shared_ptr<MetricsValueBuffer>> buffers_;

    FileTargets prepared_;              // files that were opened for new roots of the batch
    std::vector<TableSchema> schemas_;  // of tables that opened by themselves: due when the cycle ends
    std::vector<Notice> notices_;
    TargetHints hints_{notices_};
    std::shared_ptr<const ErrorHandler> errorHandler_;
};

}  // namespace Metrics::detail
