#include "metrics/output/OutputState.h"

#include <utility>

#include "metrics/MetricsValueBuffer.h"
#include "metrics/base/FileError.h"
#include "metrics/output/EventKind.h"
#include "metrics/output/FileTarget.h"
#include "metrics/rows/ColumnSpec.h"

namespace Metrics::detail {

namespace {

constexpr char kMisnested[] =
    "MetricsOutput: a context or scope closed while scopes inside it were open; they are written as ended "
    "there";
constexpr char kCutText[] = "MetricsOutput: texts of more than 254 bytes were cut in a buffer";

using Opening = OutputFileStream::Opening;

std::string ContextName(std::uint64_t contextId) {
    return "context " + std::to_string(contextId);
}

// For who reads it later, and doesn't know what was to be opened.
std::string Described(const std::exception& error, const std::string& destination) {
    const auto* const file = dynamic_cast<const FileError*>(&error);
    if (file != nullptr) return file->Details();
    const std::string opening = destination.empty() ? "" : "failed to open " + destination + ": ";
    return opening + error.what();
}

EventRouter::Mode RoutingOf(MetricsOutput::Mode mode) {
    switch (mode) {
        case MetricsOutput::Mode::Single: return EventRouter::Mode::OneAfterTheOther;
        case MetricsOutput::Mode::Completed: return EventRouter::Mode::AsTheyEnd;
        default: return EventRouter::Mode::EachItsOwn;
    }
}

RootStreams::Form FormOf(MetricsOutput::Format format) {
    switch (format) {
        case MetricsOutput::Format::CsvComma:
        case MetricsOutput::Format::CsvPipe: return RootStreams::Form::Rows;
        case MetricsOutput::Format::Buffer: return RootStreams::Form::Events;
        default: return RootStreams::Form::Elements;
    }
}

}  // namespace

class OutputState::Locked {
  public:
    explicit Locked(OutputState& state) : lock_(state.lock_) {}

  private:
    const std::lock_guard<platform::RecursiveMutex> lock_;
    // A host thread may write too: what opens a target, what closes without a worker.
    const platform::BrokenPipeGuard guard_;
};

// Tells at the end of a call, when its lock is free again.
class OutputState::Teller {
  public:
    explicit Teller(OutputState& state) : state_(state) {}
    ~Teller() { state_.Tell(); }
    Teller(const Teller&) = delete;
    Teller& operator=(const Teller&) = delete;

  private:
    OutputState& state_;
};

OutputState::OutputState(std::shared_ptr<detail::Core> core, Mode mode, Format format)
    : core_(std::move(core)), mode_(mode) {
    settings_.format = format;
    settings_.misnested = &misnested_;
    settings_.remark = [this](std::string text) { Remark(std::move(text)); };
    if (format == Format::RawUnordered) return;
    EventRouter::RootHandler onRoot;
    if (mode == Mode::PerContext) onRoot = [this](std::uint64_t rootId) { OpenForRoot(rootId); };
    router_ = std::make_unique<EventRouter>(RoutingOf(mode), FormOf(format), targets_, std::move(onRoot),
                                            [this](std::string line) {
                                                notices_.push_back({Notice::Kind::Line, std::move(line)});
                                            });
}

template <class Action>
void OutputState::Guarded(Action action, bool flush) noexcept {
    const Locked locked(*this);
    try {
        try {
            action();
        } catch (const std::exception& error) {
            problems_.push_back(Described(error, {}));
        } catch (...) {
            problems_.push_back("unknown exception");
        }
        FinishBatch(flush);
    } catch (...) {
        // There is no memory even for the message.
    }
}

// What was collected for targets that stay open goes out once in a cycle: with thousands of them there is
// hardly an event for each one in a batch.
void OutputState::ProcessBatch(const std::vector<MetricsEvent>& batch) noexcept {
    const Teller teller(*this);
    const bool endsCycle = !core_->MoreFollows();
    Prepared prepared = PrepareFiles(batch);
    const auto process = [&] {
        if (!Writes()) return;
        prepared_.swap(prepared);
        if (router_)
            router_->Route(batch);
        else
            targets_.WriteToEach(batch);
        prepared_.clear();
        if (endsCycle) CheckAwaited(false);
    };
    Guarded(process, endsCycle);
    if (endsCycle) WriteDueSchemas();
}

// The system may take its time to open a file, so that is done before the lock is taken. What can't be opened
// is tried again when the root begins, and then is an error.
OutputState::Prepared OutputState::PrepareFiles(const std::vector<MetricsEvent>& batch) noexcept {
    Prepared prepared;
    if (mode_ != Mode::PerContext) return prepared;
    try {
        std::vector<std::uint64_t> roots;
        for (const MetricsEvent& event : batch)
            if (CreatesRoot(event)) roots.push_back(CreatedContext(event));
        if (roots.empty()) return prepared;
        std::unique_lock lock(lock_);
        if (!Writes() || !router_ || wildcard_.empty()) return prepared;
        std::erase_if(roots, [&](std::uint64_t id) {
            return id == 0 || targets_.Audiences().contains(id) || router_->HasRoot(id) ||
                   router_->IsChild(id);
        });
        const WriterSettings settings = settings_;
        const std::string pattern = wildcard_;
        lock.unlock();
        for (const std::uint64_t id : roots)
            prepared.try_emplace(id,
                                 MakeFileTarget(settings, WildcardName(pattern, id), Opening::DoesNotWait));
    } catch (...) {
        // As above.
    }
    return prepared;
}

void OutputState::OpenFile(const std::string& name, std::uint64_t contextId, bool isNew) {
    const Teller teller(*this);
    WriterSettings settings;
    if (!MayOpen(name, settings)) return;
    Opens(name, [&] {
        const bool mayWait = !core_->OnWorkerThread();
        OutputTarget target =
            MakeFileTarget(settings, name, mayWait ? Opening::MayWait : Opening::DoesNotWait);
        target.file->Empty();
        const TableSchema schema{name, mode_ == Mode::Borrowed ? std::string() : SchemaBeside(target)};
        if (!schema.entries.empty()) WriteSchemas({&schema, 1});
        const Locked locked(*this);
        HintAtDefinition(name);
        streams_.reserve(streams_.size() + 1);
        OutputTarget& opened = targets_.Open(contextId, std::move(target));
        // In Borrowed the file outlives its target; it goes with the output.
        if (mode_ == Mode::Borrowed) streams_.push_back(std::move(opened.owned));
        Begin(opened, isNew);
    });
}

// A file that nothing would be written to is left as it is.
bool OutputState::MayOpen(const std::string& name, WriterSettings& settings) {
    const Locked locked(*this);
    if (Writes())
        settings = settings_;
    else
        hints_.OpenedTooLate(name, !closed_);
    return Writes();
}

template <class Action>
void OutputState::Opens(const std::string& destination, Action action) {
    try {
        action();
    } catch (const std::exception& error) {
        const std::lock_guard lock(lock_);
        notices_.push_back({Notice::Kind::Error, Described(error, destination)});
        throw;
    }
}

void OutputState::OpenStream(std::ostream* stream, std::uint64_t contextId) {
    const Teller teller(*this);
    Opens(ContextName(contextId), [&] {
        const Locked locked(*this);
        HintAtDefinition(ContextName(contextId));
        OutputTarget target;
        target.stream = stream;
        target.writer = MakeWriter(settings_, stream, ContextName(contextId));
        OutputTarget& opened = targets_.Open(contextId, std::move(target));
        // Only now: a failure leaves it to the caller.
        if (mode_ != Mode::Borrowed) opened.owned.reset(stream);
        Begin(opened, false);
    });
}

void OutputState::Begin(OutputTarget& target, bool isNew) {
    const std::uint64_t contextId = target.audience->contextId;
    if (!Writes()) {
        hints_.OpenedTooLate(ContextName(contextId), !closed_);
        return CloseAll();
    }
    HintAtContext(contextId, isNew);
    if (router_) router_->Attach(*target.audience);
    FinishBatch();
}

void OutputState::OpenForRoot(std::uint64_t rootId) {
    if (!problems_.empty()) return;  // the output is about to stop
    try {
        router_->Attach(*targets_.Open(rootId, TargetForRoot(rootId)).audience);
    } catch (const std::exception& error) {
        problems_.push_back(Described(error, WildcardName(wildcard_, rootId)));
    }
}

OutputTarget OutputState::TargetForRoot(std::uint64_t rootId) {
    if (wildcard_.empty()) {
        if (settings_.format != Format::Buffer) hints_.NoFileNames();
        return MakeNullTarget(settings_);
    }
    const auto prepared = prepared_.extract(rootId);
    OutputTarget target =
        !prepared.empty() ? std::move(prepared.mapped())
                          : MakeFileTarget(settings_, WildcardName(wildcard_, rootId), Opening::DoesNotWait);
    target.file->Empty();
    HintAtDefinition(target.file->Name());
    if (std::string schema = SchemaBeside(target); !schema.empty())
        schemas_.push_back({target.file->Name(), std::move(schema)});
    return target;
}

void OutputState::HintAtDefinition(const std::string& destination) {
    if (IsTable(settings_.format) && settings_.rowDefinition.empty())
        hints_.TableWithoutDefinition(destination);
}

void OutputState::HintAtContext(std::uint64_t contextId, bool isNew) {
    if (!router_ || mode_ == Mode::Single || mode_ == Mode::Completed) return;
    if (contextId == 0) return hints_.ContextZero();
    if (router_->IsChild(contextId)) return hints_.NoRoot(contextId);
    if (!isNew && !router_->HasRoot(contextId) && contextId <= core_->LastContextId())
        hints_.Await(contextId);
}

// A target that is gone has had its context.
void OutputState::CheckAwaited(bool last) {
    if (!router_) return;
    hints_.CheckAwaited(last, [&](std::uint64_t contextId) {
        using Arrival = TargetHints::Arrival;
        if (router_->IsChild(contextId)) return Arrival::NoRoot;
        const bool arrived = router_->HasRoot(contextId) || !targets_.Audiences().contains(contextId);
        return arrived ? Arrival::Arrived : Arrival::Nothing;
    });
}

// One schema.ini may describe all tables of a cycle.
void OutputState::WriteDueSchemas() noexcept {
    try {
        std::vector<TableSchema> due;
        {
            const std::lock_guard lock(lock_);
            due.swap(schemas_);
        }
        if (!due.empty()) WriteSchemas(due);
    } catch (...) {
        const std::exception_ptr failure = std::current_exception();
        Guarded([&] { std::rethrow_exception(failure); });
    }
}

void OutputState::SetWildcard(const std::string& pattern) {
    const Locked locked(*this);
    wildcard_ = pattern;
}

void OutputState::SetRootElement(const std::string& name) {
    const Locked locked(*this);
    settings_.rootElement = name;
}

void OutputState::SetRowDefinition(const std::string& definition) {
    const Teller teller(*this);
    const Locked locked(*this);
    settings_.rowDefinition = SplitDefinition(definition);
    hints_.DefinitionSet();
}

void OutputState::MuteVolatileData() {
    const Locked locked(*this);
    settings_.mute = true;
    if (router_) router_->MuteVolatileData();
}

void OutputState::SetHeldLimit(std::size_t bytes) {
    const Locked locked(*this);
    if (router_) router_->SetHeldLimit(bytes);
}

void OutputState::Flush() noexcept {
    Guarded([] {});
}

void OutputState::Drain(std::uint64_t contextId) noexcept {
    Guarded([&] {
        if (router_) router_->Drain({.on = true, .rootId = contextId});
    });
}

void OutputState::CloseDown() noexcept {
    Guarded([&] {
        if (closed_) return;
        if (Writes()) CheckAwaited(true);
        StopRouting();
        CloseAll();
    });
    closed_ = true;
}

void OutputState::Conclude() noexcept {
    WriteDueSchemas();
    Tell();
}

void OutputState::ReleaseStreams() noexcept {
    const Locked locked(*this);
    streams_.clear();
}

// Nothing can come any more: what was held back goes out as it is.
void OutputState::StopRouting() {
    const auto router = std::move(router_);
    if (!router) return;
    router->Drain({.on = true, .final = true});
    core_->CountLeftOut(router->TakeLeftOut() + router->Homeless());
}

void OutputState::CloseAll() {
    targets_.Flush();
    targets_.MarkAll();
    CloseMarked();
}

void OutputState::CloseMarked() {
    for (ClosedTarget& closed : targets_.CloseMarked()) {
        if (closed.buffer && closed.buffer->HasCutTexts())
            notices_.push_back({Notice::Kind::Hint, kCutText, Core::CutText});
        if (closed.buffer) buffers_[closed.contextId] = std::move(closed.buffer);
        if (closed.wasLast && router_) router_->Detach(closed.contextId);
    }
}

void OutputState::FinishBatch(bool flush) {
    if (const std::uint64_t count = router_ ? router_->TakeLeftOut() : 0; count != 0)
        core_->CountLeftOut(count);
    if (flush) targets_.Flush();
    CloseMarked();
    if (std::exchange(misnested_, false))
        notices_.push_back({Notice::Kind::Hint, kMisnested, Core::Misnested});
    for (std::string& problem : targets_.TakeProblems()) problems_.push_back(std::move(problem));
    for (std::string& problem : std::exchange(problems_, {})) AddError(std::move(problem));
}

void OutputState::AddError(std::string message) {
    KeepError(std::move(message));
    StopRouting();
    CloseAll();
    for (std::string& problem : targets_.TakeProblems()) KeepError(std::move(problem));
}

void OutputState::KeepError(std::string message) {
    notices_.push_back({Notice::Kind::Error, message});
    errors_.push_back(std::move(message));
}

void OutputState::SetError(const std::string& message) {
    const Teller teller(*this);
    const Locked locked(*this);
    AddError(message);
}

void OutputState::SetErrorHandler(ErrorHandler handler) {
    auto shared = std::make_shared<const ErrorHandler>(std::move(handler));
    const std::lock_guard lock(lock_);
    errorHandler_.swap(shared);
}

void OutputState::Remark(std::string text) noexcept {
    try {
        notices_.push_back({Notice::Kind::Remark, std::move(text)});
    } catch (...) {
        // No memory for a remark.
    }
}

void OutputState::Tell() noexcept {
    try {
        std::vector<Notice> due;
        std::shared_ptr<const ErrorHandler> handler;
        {
            const std::lock_guard lock(lock_);
            due.swap(notices_);
            handler = errorHandler_;
        }
        TellNotices(*core_, handler.get(), due);
    } catch (...) {
        // The system's lock fails only when its memory is damaged.
    }
}

std::vector<std::string> OutputState::Errors() const {
    const std::lock_guard lock(lock_);
    return errors_;
}

std::shared_ptr<MetricsValueBuffer> OutputState::FindBuffer(std::uint64_t contextId) const {
    const std::lock_guard lock(lock_);
    const auto found = buffers_.find(contextId);
    return found == buffers_.end() ? nullptr : found->second;
}

std::shared_ptr<MetricsValueBuffer> OutputState::TakeBuffer(std::uint64_t contextId) {
    const std::lock_guard lock(lock_);
    const auto node = buffers_.extract(contextId);
    return node.empty() ? nullptr : node.mapped();
}

}  // namespace Metrics::detail
