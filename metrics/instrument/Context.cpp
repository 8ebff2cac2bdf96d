#include "metrics/Context.h"

#include <charconv>
#include <new>
#include <utility>

#include "metrics/MetricsManager.h"
#include "metrics/MetricsTimer.h"
#include "metrics/Scope.h"
#include "metrics/instrument/Emission.h"
#include "metrics/instrument/OnContext.h"
#include "metrics/manager/EventBuilder.h"
#include "metrics/platform/Platform.h"

namespace Metrics {

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

// Contexts for which there is no memory share one state: id 0, so disabled, and never freed.
detail::ContextState* NewState(Context* context, std::uint64_t parentId, std::uint64_t id) {
    const MetricsThreadContext* record = ThreadRecord();
    const std::uint64_t generation = record != nullptr ? record->Generation() : 0;
    if (auto* state = new (std::nothrow) detail::ContextState(context, parentId, id, generation))
        return state;
    alignas(detail::ContextState) static std::byte memory[sizeof(detail::ContextState)];
    static auto* const spare = new (memory) detail::ContextState(nullptr, 0, 0, 0);
    detail::Retain(spare);
    return spare;
}

// False for a context of a manager that was freed, or of the parent process: its id means nothing here.
bool IsOurs(const MetricsThreadContext* record, const detail::ContextState& state) {
    return record != nullptr && record->Generation() == state.generation;
}

void Log(const std::string& message) {
    if (const auto core = detail::CurrentCoreAndGeneration().first) core->Log(message);
}

std::string Hexadecimal(std::uint64_t value) {
    char digits[16];
    const auto end = std::to_chars(digits, digits + sizeof digits, value, 16).ptr;
    return std::string(digits, end);
}

std::string Pointer(const Context* context) {
    return "<ptr=0x" + Hexadecimal(reinterpret_cast<std::uintptr_t>(context));
}

// All numbers are hexadecimal, without prefix.
std::string Describe(const Context* context, const detail::ContextState& state) {
    if (context == nullptr) return "<none>";
    const bool root = state.id != 0 && state.parentId == 0;
    return Pointer(context) + ", tid=" + Hexadecimal(state.threadId.load(kRelaxed)) +
           ", root=" + (root ? "true" : "false") + ", id=" + Hexadecimal(state.id) +
           ", parent id=" + Hexadecimal(state.parentId) + ", enabled=" + (state.IsEnabled() ? "1" : "0") +
           ">";
}

}  // namespace

unsigned long long Context::Create(bool root) {
    return Create(root, nullptr);
}

unsigned long long Context::Create(bool root, std::function<void(unsigned long long)> onId) {
    const auto core = detail::Core::Current();
    const MetricsThreadContext* record = ThreadRecord();
    const detail::ContextState* parent = root || record == nullptr ? nullptr : record->Current();
    const std::uint64_t parentId = parent != nullptr ? parent->id : 0;
    const bool wanted = parent == nullptr || parent->IsEnabled();
    const std::uint64_t id = wanted ? core->NextContextId() : 0;
    if (wanted && id == 0) {
        core->LogOnce(detail::Core::NotCollecting,
                      "Context Create: the manager is not collecting; contexts get no id and emit nothing");
    }
    if (onId) onId(id);
    if (id != 0 && record != nullptr) {
        if (!root) detail::OpenOwnScope(record->Current());
        detail::PostFor(*record, MetricsEventType::ContextCreate, record->CurrentId(), parentId, id);
    }
    return id;
}

// A value that waits for its place.
struct Context::KeptValue {
    MetricsValue name;
    MetricsValue value;
};

Context::Context(unsigned long long parentId, unsigned long long id)
    : magic_(detail::kAliveMagic), componentId_(0), state_(nullptr) {
    detail::Core::Current();  // the record below belongs to a manager from here on
    state_ = NewState(this, parentId, id);
    Begin(false);
}

Context::Context(unsigned long long parentId, unsigned long long id, const std::string& name)
    : magic_(detail::kAliveMagic), name_(name), componentId_(0), state_(nullptr) {
    detail::Core::Current();
    state_ = NewState(this, parentId, id);
    Begin(true);
}

// Its own scope, which comes later, will be measured from here on.
void Context::Begin(bool byFactory) {
    if (byFactory && state_->id != 0) {
        state_->birth = {[](Context& context) { context.OpenScope(); },
                         MetricsTimer::GetApplicationElapsedSecs(), detail::CurrentTicks()};
        state_->measuredScopes.store(1, kRelaxed);
    }
    if (MetricsThreadContext* record = ThreadRecord()) {
        componentId_ = record->componentId;
        record->TakeContext(state_);
        if (state_->id != 0) {
            detail::PostFor(*record, MetricsEventType::ContextConstruct, state_->id, state_->parentId,
                            state_->id);
        }
    }
    open_ = true;
    Validate();
}

Context::Context(ContextTicket&& ticket)
    : Context(ticket.IsOurs() ? ticket.parentId_ : 0, ticket.IsOurs() ? ticket.id_ : 0, ticket.name_) {
    ticket.parentId_ = ticket.id_ = 0;
}

Context Context::Root(const std::string& name) {
    return Context(0, Create(true), name);
}

Context Context::Child(const std::string& name) {
    const MetricsThreadContext* record = ThreadRecord();
    const std::uint64_t parentId = record != nullptr ? record->CurrentId() : 0;
    return Context(parentId, Create(false), name);
}

ContextTicket Context::Hand(const std::string& name) {
    const MetricsThreadContext* record = ThreadRecord();
    const std::uint64_t parentId = record != nullptr ? record->CurrentId() : 0;
    return ContextTicket(parentId, Create(false), name);
}

Context* Context::Current() {
    const MetricsThreadContext* record = ThreadRecord();
    const detail::ContextState* state = record != nullptr ? record->Current() : nullptr;
    return state != nullptr ? state->owner.load(kRelaxed) : nullptr;
}

Context::~Context() {
    Validate();
    ReportForeignDestruction();
    Close();
    magic_ = detail::kDestroyedMagic;
    state_->magic.store(detail::kDestroyedMagic, kRelaxed);
    state_->owner.store(nullptr, kRelaxed);
    if (state_->references.load(kRelaxed) > 1) detail::NoteContextLeftBehind();
    detail::Release(state_);
}

void Context::ReportForeignDestruction() const {
    const std::uint32_t attached = state_->threadId.load(kRelaxed);
    if (attached == 0 || attached == platform::CurrentThreadId()) return;
    Log("Context Destruct: Error: we're attached to a thread, but we're being destructed by a different "
        "thread "
        "(Java garbage collection?): cxt=" +
        Describe(this, *state_));
}

void Context::AttachToThread() {
    Validate();
    if (MetricsThreadContext* record = ThreadRecord()) record->TakeContext(state_);
}

void Context::DetachFromThread() {
    Validate();
    if (MetricsThreadContext* record = ThreadRecord()) record->LeaveContext(state_, {});
    state_->threadId.store(0, kRelaxed);
}

void Context::Enable(bool enabled) {
    Validate();
    state_->enabled.store(enabled, kRelaxed);
}

bool Context::IsEnabled() const {
    return state_->IsEnabled();
}

unsigned long long Context::GetContextId() const {
    return state_->id;
}

unsigned long long Context::GetParentContextId() const {
    return state_->parentId;
}

int Context::GetThreadId() const {
    return static_cast<int>(state_->threadId.load(kRelaxed));
}

void Context::SetThreadId(int id) {
    state_->threadId.store(static_cast<std::uint32_t>(id), kRelaxed);
}

void Context::SetComponentId(unsigned long long id) {
    componentId_ = id;
}

void Context::SetName(const std::string& name) {
    name_ = name;
}

MetricsTimeStack& Context::GetTimeStack() {
    return state_->timeStack;
}

void Context::AddAttribute(const std::string& name, const std::string& value) {
    AddText(attributes_, name, value);
}

void Context::AddNameValue(const std::string& name, const std::string& value) {
    AddText(nameValues_, name, value);
}

void Context::AddText(std::unique_ptr<TextMap>& map, const std::string& name, const std::string& value) {
    Validate();
    if (!map) map = std::make_unique<TextMap>();
    (*map)[name] = value;
    if (state_->identified.load(kRelaxed)) {
        detail::Core::Current()->LogOnce(
            detail::Core::LateAttribute,
            "Context: an attribute or name/value was added after the context's own "
            "scope had opened; it is not written");
    }
}

void Context::OpenScope() {
    Validate();
    MetricsThreadContext* record = ThreadRecord();
    if (!IsOurs(record, *state_) || !IsEnabled() || state_->identified.load(kRelaxed)) return;
    state_->identified.store(true, kRelaxed);
    try {
        Identify(*record);
    } catch (const std::bad_alloc&) {
        // What there was no memory for is missing; the context goes on.
    }
}

void Context::Identify(MetricsThreadContext& record) {
    using detail::PostNameValue;
    const std::uint64_t id = state_->id;
    PostNameValue(record, id, FourCC("pid"), platform::CurrentProcessId());
    PostNameValue(record, id, FourCC("tid"), platform::CurrentThreadId());
    PostNameValue(record, id, FourCC("cid"), record.CurrentId());
    PostNameValue(record, id, detail::kComponentKey, detail::ComponentMnemonic(componentId_));
    record.announceComponent = false;
    if (attributes_) {
        for (const auto& [name, value] : *attributes_) PostNameValue(record, id, name, value);
    }
    ownScope_.reset();
    ownScope_.reset(new Scope(Scope::OnContext{}, record, *state_, name_, Scope::kElapsedTime));
    if (nameValues_) {
        for (const auto& [name, value] : *nameValues_) {
            detail::PostFor(record, MetricsEventType::ScopeValue, id, name, value);
        }
    }
    PostKeptValues();
}

// At once only when nothing of the context is open but its own scope.
bool Context::Emit(const MetricsValue& name, const MetricsValue& value) noexcept {
    try {
        Validate();
        if (!open_ || !IsEnabled() || !IsOurs(ThreadRecord(), *state_)) return false;
        if (ownScope_ && state_->timeStack.Size() <= 1) {
            if (!keptValues_.empty()) PostKeptValues();
            return ownScope_->Emit(name, value);
        }
        keptValues_.push_back({name, value});
        state_->keepsValues = true;
        return true;
    } catch (const std::bad_alloc&) {
        if (const MetricsThreadContext* record = ThreadRecord()) record->Core()->CountDropped();
        return false;
    }
}

void Context::PostKeptValues() noexcept {
    state_->keepsValues = false;
    if (!ownScope_ || !ownScope_->IsOpen()) return LeaveOutKeptValues();
    for (const KeptValue& kept : keptValues_) ownScope_->Emit(kept.name, kept.value);
    keptValues_.clear();
}

void Context::LeaveOutKeptValues() noexcept {
    if (keptValues_.empty()) return;
    const MetricsThreadContext* record = ThreadRecord();
    if (IsOurs(record, *state_) && record->Core() && record->Core()->HasSubscribers()) {
        record->Core()->CountLeftOut(keptValues_.size());
    }
    keptValues_.clear();
}

void Context::Close() {
    if (!open_) return;
    Validate();
    detail::OpenOwnScope(state_);
    PostKeptValues();
    ownScope_.reset();
    if (const MetricsThreadContext* record = ThreadRecord(); IsOurs(record, *state_) && state_->id != 0) {
        detail::PostFor(*record, MetricsEventType::ContextClose, state_->id);
    }
    state_->closed.store(true, kRelaxed);
    DetachFromThread();
    open_ = false;
}

void Context::Validate() const {
    if (magic_ != detail::kAliveMagic) Log("Context Error: invalid object: cxt=" + Pointer(this) + ">");
}

}  // namespace Metrics
