#include "metrics/output/OutputState.h"

#include <utility>

#include "metrics/MetricsValueBuffer.h"
#include "metrics/output/NullStream.h"
#include "metrics/output/OutputFile.h"
#include "metrics/rows/ColumnSpec.h"

namespace Metrics::detail {

namespace {

constexpr char kMisnested[] =
    "MetricsOutput: a context or scope closed while scopes inside it were open; they are written as ended "
    "there";

OutputTarget MakeNullTarget() {
    OutputTarget target;
    target.owned = std::make_unique<basic_onullstream<char>>();
    target.stream = target.owned.get();
    return target;
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
    explicit Locked(OutputState& state) : state_(state) { state_.lock_.lock(); }
    ~Locked() {
        const auto lines = std::exchange(state_.log_, {});
        const auto hint = std::exchange(state_.hint_, {});
        const bool misnested = std::exchange(state_.misnested_, false);
        const bool hasCutTexts = std::exchange(state_.hasCutTexts_, false);
        state_.lock_.unlock();
        for (const std::string& line : lines) state_.core_->Log(line);
        if (!hint.empty()) state_.core_->LogOnce(Core::NoSuchRoot, hint);
        if (hasCutTexts)
            state_.core_->LogOnce(Core::CutText,
                                  "MetricsOutput: texts of more than 254 bytes were cut in a buffer");
        if (misnested) state_.core_->LogOnce(Core::Misnested, kMisnested);
    }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

  private:
    OutputState& state_;
    // A host thread may write too: what opens a target, what closes without a worker.
    const platform::BrokenPipeGuard guard_;
};

OutputState::OutputState(std::shared_ptr<detail::Core> core, Mode mode, Format format)
    : core_(std::move(core)), mode_(mode), settings_{format, false, {}, &misnested_, {}} {
    if (format == Format::RawUnordered) return;
    EventRouter::RootHandler onRoot;
    if (mode == Mode::PerContext) onRoot = [this](std::uint64_t rootId) { OpenForRoot(rootId); };
    router_ = std::make_unique<EventRouter>(RoutingOf(mode), FormOf(format), targets_, std::move(onRoot),
                                            [this](std::string line) { log_.push_back(std::move(line)); });
}

template <class Action>
void OutputState::Guarded(Action action, bool flush) noexcept {
    const Locked locked(*this);
    try {
        try {
            action();
        } catch (const std::exception& error) {
            problems_.push_back(error.what());
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
    const auto process = [&] {
        if (!Writes()) return;
        if (router_)
            router_->Route(batch);
        else
            targets_.WriteToEach(batch);
    };
    Guarded(process, !core_->MoreFollows());
}

void OutputState::OpenFile(const std::string& name, std::uint64_t contextId) {
    const Locked locked(*this);
    streams_.reserve(streams_.size() + 1);
    OutputTarget& opened = Open(MakeFileTarget(name), contextId);
    // In Borrowed the file outlives its target; it goes with the output.
    if (mode_ == Mode::Borrowed) streams_.push_back(std::move(opened.owned));
    Begin(opened);
}

OutputTarget OutputState::MakeFileTarget(const std::string& name) {
    CheckDefinition(settings_);  // before a file of that name is replaced
    OutputTarget target;
    target.name = name;
    target.owned = std::make_unique<OutputFileStream>(name);
    target.stream = target.owned.get();
    return target;
}

void OutputState::OpenStream(std::ostream* stream, std::uint64_t contextId) {
    const Locked locked(*this);
    OutputTarget target;
    target.stream = stream;
    OutputTarget& opened = Open(std::move(target), contextId);
    if (mode_ != Mode::Borrowed) opened.owned.reset(stream);  // only now: a failure leaves it to the caller
    Begin(opened);
}

OutputTarget& OutputState::Open(OutputTarget target, std::uint64_t contextId) {
    target.writer =
        MakeWriter(settings_, target.stream, mode_ == Mode::Borrowed ? std::string() : target.name);
    return targets_.Open(contextId, std::move(target));
}

void OutputState::Begin(OutputTarget& target) {
    const std::uint64_t contextId = target.audience->contextId;
    if (!Writes()) return CloseAll();
    const bool everyRoot = mode_ == Mode::Single || mode_ == Mode::Completed;
    if (router_ && !everyRoot && router_->IsChild(contextId))
        hint_ = "MetricsOutput: context " + std::to_string(contextId) +
                " is not a root, so nothing is written for it; it is part of its root's output";
    if (router_) router_->Attach(*target.audience);
    FinishBatch();
}

void OutputState::OpenForRoot(std::uint64_t rootId) {
    if (!problems_.empty()) return;  // the output is about to stop
    try {
        OutputTarget target =
            wildcard_.empty() ? MakeNullTarget() : MakeFileTarget(WildcardName(wildcard_, rootId));
        router_->Attach(*Open(std::move(target), rootId).audience);
    } catch (const OpenFailure& failure) {
        problems_.push_back(failure.Details());
    } catch (const std::exception& error) {
        problems_.push_back(error.what());
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
    const Locked locked(*this);
    settings_.rowDefinition = SplitDefinition(definition);
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
        StopRouting();
        CloseAll();
    });
    closed_ = true;
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
        hasCutTexts_ |= closed.buffer && closed.buffer->HasCutTexts();
        if (closed.buffer) buffers_[closed.contextId] = std::move(closed.buffer);
        if (closed.wasLast && router_) router_->Detach(closed.contextId);
    }
}

void OutputState::FinishBatch(bool flush) {
    if (const std::uint64_t count = router_ ? router_->TakeLeftOut() : 0; count != 0)
        core_->CountLeftOut(count);
    if (flush) targets_.Flush();
    CloseMarked();
    for (std::string& problem : targets_.TakeProblems()) problems_.push_back(std::move(problem));
    for (std::string& problem : std::exchange(problems_, {})) AddError(std::move(problem));
}

void OutputState::AddError(std::string message) {
    errors_.push_back(std::move(message));
    StopRouting();
    CloseAll();
    for (std::string& problem : targets_.TakeProblems()) errors_.push_back(std::move(problem));
}

void OutputState::SetError(const std::string& message) {
    const Locked locked(*this);
    AddError(message);
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
