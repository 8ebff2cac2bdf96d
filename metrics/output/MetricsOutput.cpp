#include "metrics/MetricsOutput.h"

#include <charconv>
#include <functional>
#include <stdexcept>

#include "metrics/Context.h"
#include "metrics/manager/ContextState.h"
#include "metrics/output/OutputState.h"

namespace Metrics {

using detail::Core;
using detail::OutputState;

namespace {

// True in the child of a fork for an output of the parent. What it writes to belongs to the parent, and its
// locks may be held by threads that did not come along.
bool Inherited(const std::shared_ptr<OutputState>& state) {
    return state->Core().Inherited();
}

// On the worker, so that nothing is written meanwhile and a closed pipe is only an error there; or here, when
// the manager has no worker or is stopping.
void RunOnWorker(OutputState& state, const std::function<void()>& task) {
    if (!state.Core().ExecuteOnWorker(task)) task();
}

void CloseDown(const std::shared_ptr<OutputState>& state) {
    state->Core().WaitDelivered();
    state->Core().Unregister(state->registration);
    // Whoever comes second finds nothing left to do, but has waited for the first.
    RunOnWorker(*state, [state] { state->CloseDown(); });
    state->Conclude();
}

}  // namespace

MetricsOutput::MetricsOutput(Mode mode, Format format) : magic_(detail::kAliveMagic) {
    if (mode > Mode::Completed || format > Format::Buffer)
        throw std::invalid_argument("MetricsOutput: no such mode or format");
    state_ = std::make_shared<OutputState>(Core::Current(), mode, format);
    state_->registration = state_->Core().Register(
        MetricsEventCategory::Events,
        [state = state_](const std::vector<MetricsEvent>& batch) { state->ProcessBatch(batch); });
    Validate();
}

MetricsOutput::~MetricsOutput() {
    Validate();
    magic_ = detail::kDestroyedMagic;
    if (Inherited(state_)) {
        static_cast<void>(new std::shared_ptr<OutputState>(std::move(state_)));  // never to be destroyed
        return;
    }
    try {
        if (!state_->IsClosed()) CloseDown(state_);
    } catch (...) {
        state_->CloseDown();
        state_->Conclude();
    }
    state_->SetErrorHandler(nullptr);
    state_->ReleaseStreams();
}

void MetricsOutput::Validate() const {
    if (magic_ == detail::kAliveMagic) return;
    char message[80] = "MetricsOutput: Error: invalid object: ptr=0x";
    char* const digits = message + std::char_traits<char>::length(message);
    const auto address = reinterpret_cast<std::uintptr_t>(this);
    *std::to_chars(digits, message + sizeof(message) - 1, address, 16).ptr = '\0';
    MetricsManager::GetInstance().Log(message);
    platform::RaiseInvalidObject(message);
}

void MetricsOutput::OpenFile(const std::string& fileName, unsigned long long contextId) {
    Validate();
    if (!Inherited(state_)) state_->OpenFile(fileName, contextId);
}

void MetricsOutput::WriteToStream(std::ostream& stream, unsigned long long contextId) {
    Validate();
    if (!Inherited(state_)) state_->OpenStream(&stream, contextId);
}

void MetricsOutput::WriteToBuffer(unsigned long long contextId) {
    Validate();
    if (!Inherited(state_)) state_->OpenStream(nullptr, contextId);
}

void MetricsOutput::SetWildcardedOutputFile(const std::string& pattern) {
    Validate();
    if (!Inherited(state_)) state_->SetWildcard(pattern);
}

void MetricsOutput::SetRootElement(const std::string& name) {
    Validate();
    if (!Inherited(state_)) state_->SetRootElement(name);
}

void MetricsOutput::SetRowDefinition(const std::string& definition) {
    Validate();
    if (!Inherited(state_)) state_->SetRowDefinition(definition);
}

unsigned long long MetricsOutput::OpenNewContextAndFile(const std::string& fileName) {
    Validate();
    const auto open = [&](unsigned long long contextId) {
        if (!Inherited(state_)) state_->OpenFile(fileName, contextId, true);
    };
    return Context::Create(true, open);
}

void MetricsOutput::MuteVolatileData() {
    Validate();
    if (!Inherited(state_)) state_->MuteVolatileData();
}

void MetricsOutput::SetHeldLimit(std::size_t bytes) {
    Validate();
    if (!Inherited(state_)) state_->SetHeldLimit(bytes);
}

void MetricsOutput::Finish(unsigned long long contextId) {
    Validate();
    if (Inherited(state_) || state_->IsClosed()) return;
    state_->Core().WaitDelivered();
    RunOnWorker(*state_, [state = state_, contextId] { state->Drain(contextId); });
    state_->Conclude();
}

void MetricsOutput::Flush() {
    Validate();
    if (Inherited(state_) || state_->IsClosed()) return;
    state_->Core().WaitDelivered();
    state_->Flush();
    state_->Conclude();
}

void MetricsOutput::Close() {
    Validate();
    if (!Inherited(state_) && !state_->IsClosed()) CloseDown(state_);
}

std::shared_ptr<MetricsValueBuffer> MetricsOutput::GetBuffer(unsigned long long contextId) const {
    Validate();
    return Inherited(state_) ? nullptr : state_->FindBuffer(contextId);
}

std::shared_ptr<MetricsValueBuffer> MetricsOutput::TakeBuffer(unsigned long long contextId) {
    Validate();
    return Inherited(state_) ? nullptr : state_->TakeBuffer(contextId);
}

void MetricsOutput::SetErrorHandler(std::function<void(const std::string&)> handler) {
    Validate();
    if (!Inherited(state_)) state_->SetErrorHandler(std::move(handler));
}

void MetricsOutput::SetError(const std::string& message) {
    Validate();
    if (!Inherited(state_)) state_->SetError(message);
}

std::vector<std::string> MetricsOutput::GetErrors() const {
    Validate();
    return Inherited(state_) ? std::vector<std::string>() : state_->Errors();
}

bool MetricsOutput::HasError() const {
    return !GetErrors().empty();
}

}  // namespace Metrics
