#include "metrics/Scope.h"

#include <cstring>
#include <new>
#include <utility>

#include "metrics/Context.h"
#include "metrics/MetricsSubscope.h"
#include "metrics/instrument/CallSites.h"
#include "metrics/instrument/Emission.h"
#include "metrics/instrument/OnContext.h"
#include "metrics/instrument/ScopeDataInline.h"
#include "metrics/manager/EventBuilder.h"
#include "metrics/platform/Platform.h"

namespace Metrics {

// Defined here, for programs that are compiled without optimisation and take them from the shared library.
const unsigned long long Scope::kElapsedTime;
const unsigned long long Scope::kMemory;
const unsigned long long Scope::kLocation;

namespace {

constexpr unsigned long long kSubscopeBits = 0xF00000;

unsigned long long SelectedSubscopes(unsigned long long bits) {
    return (detail::enableMask.load(std::memory_order_relaxed) | bits) & kSubscopeBits;
}

// Posts the event that `make` makes, for which there may be no memory.
template <class Make>
[[gnu::noinline]] void PostOrDrop(detail::Core& core, Make make) noexcept {
    try {
        core.Post(make());
    } catch (const std::bad_alloc&) {
        core.CountDropped();
    }
}

// The context that a scope of this thread could open on now, or null. One that lacks a context is counted.
inline detail::ContextState* UsableContext(MetricsThreadContext& record) noexcept {
    detail::ContextState* context = record.Current();
    if (context == nullptr) record.NoteLeftOut();
    return context != nullptr && context->IsUsable() ? context : nullptr;
}

// Without memory it is left out; the scope opens all the same.
void AnnounceComponent(MetricsThreadContext& record, std::uint64_t contextId) noexcept {
    record.announceComponent = false;
    if (record.componentId == 0) return;
    try {
        detail::PostNameValue(record, contextId, detail::kComponentKey,
                              detail::ComponentMnemonic(record.componentId));
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace

inline Scope::Body::Body(const MetricsValue& about, const MetricsThreadContext& record,
                         detail::ContextState& context, bool pinned)
    : data(about, record, context, pinned) {}

// False once the manager that gave the context its id is gone.
inline bool Scope::IsOurs(const MetricsThreadContext* record) const {
    return record != nullptr && static_cast<std::uint32_t>(record->Generation()) == body_.data.generation_;
}

// The scope's event as it is.
inline void Scope::Post(const MetricsThreadContext& record) const noexcept {
    const MetricsEvent& event = body_.data.event_;
    detail::Core* core = record.Core().get();
    if (core == nullptr) return;
    if (event.param1.OwnsText()) [[unlikely]]
        return PostOrDrop(*core, [from = &event] { return *from; });
    core->PostBuilt([from = &event](void* place) noexcept { std::memcpy(place, from, sizeof *from); });
}

// The same as the opening but for the type.
inline void Scope::PostClosing(const MetricsThreadContext& record) noexcept {
    body_.data.event_.SetTypeInWord(MetricsEventType::ScopeClose);
    Post(record);
}

// The order of events: the context's identification, the component, the opening, the measurements.
void Scope::Begin(MetricsThreadContext& record, const char* file, int line) {
    detail::ContextState& context = *body_.data.context_;
    if (!context.identified.load(std::memory_order_relaxed)) {
        if (Context* owner = context.owner.load(std::memory_order_relaxed)) owner->OpenScope();
    }
    bits_ = (bits_ | kOpen) & ~kPlugin;
    if (record.announceComponent) AnnounceComponent(record, body_.data.ContextId());
    Post(record);
    if (body_.data.owner_ != 0) record.Enter(this);
    if ((bits_ & kNoTimeStack) == 0) {
        context.timeStack.Push();
        const auto selected = SelectedSubscopes(bits_);
        if (selected != 0) AddSubscopes(record, context, selected, file, line);
    }
}

Scope::Scope(OnContext, MetricsThreadContext& record, detail::ContextState& context,
             const MetricsValue& value, unsigned long long bits)
    : bits_(bits) {
    try {
        new (&body_) Body(value, record, context, false);
        live_ = true;
        Begin(record, nullptr, 0);
    } catch (const std::bad_alloc&) {
        // It stays closed.
    }
}

// What nearly every opening is: the first one, of a scope that measures nothing, in a context that is known.
inline bool Scope::OpensPlainly(const MetricsThreadContext& record,
                                const MetricsValue& value) const noexcept {
    return !live_ && !value.OwnsText() && SelectedSubscopes(bits_) == 0 &&
           record.Current()->identified.load(std::memory_order_relaxed) && !record.announceComponent;
}

bool Scope::Open(const MetricsValue& value, const char* file, int line) noexcept {
    MetricsThreadContext* record = ReadyThreadRecord();
    if (record != nullptr && !live_ && UsableContext(*record) == nullptr) return false;
    if (record == nullptr || !OpensPlainly(*record, value)) [[unlikely]]
        return OpenOther(value, file, line);
    detail::ContextState& context = *record->Current();
    record->PinCurrent();
    record->Enter(this);
    context.timeStack.Push();
    bits_ = (bits_ | kOpen) & ~kPlugin;
    new (&body_) Body(value, *record, context, true);
    live_ = true;
    Post(*record);
    return true;
}

bool Scope::OpenOther(const MetricsValue& value, const char* file, int line) noexcept {
    MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr) return false;
    if (live_) return OpenAgain(*record, value, file, line);
    detail::ContextState* context = UsableContext(*record);
    if (context == nullptr) return false;
    try {
        new (&body_) Body(value, *record, *context, true);
        record->PinCurrent();
        live_ = true;
        Begin(*record, file, line);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool Scope::OpenAgain(MetricsThreadContext& record, const MetricsValue& value, const char* file,
                      int line) noexcept {
    if (IsOpen() || !IsOurs(&record) || !BelongsTo(&record) || !body_.data.context_->IsUsable()) return false;
    try {
        body_.data.event_.param1 = value;
        body_.data.event_.SetType(MetricsEventType::ScopeOpen);
        Begin(record, file, line);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void Scope::OpenAt(detail::CallSite& site, int line) noexcept {
    MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr || UsableContext(*record) == nullptr) return;
    try {
        const auto& texts = detail::KeepTexts(site);
        Open(MetricsValue::Ref(texts.name), texts.file, line);
    } catch (const std::bad_alloc&) {
    }
}

void Scope::OpenNamed(std::string_view name, detail::CallSite& site, int line) noexcept {
    MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr || UsableContext(*record) == nullptr) return;
    try {
        Open(MetricsValue(name), detail::KeepTexts(site).file, line);
    } catch (const std::bad_alloc&) {
    }
}

void Scope::AddSubscopes(MetricsThreadContext& record, detail::ContextState& context,
                         unsigned long long selected, const char* file, int line) {
    try {
        if ((selected & kLocation) != 0)
            body_.subscopes = new LocationSubscope(*this, body_.subscopes, file, line);
        if ((selected & kMemory) != 0) body_.subscopes = new MemoryMonitorSubscope(*this, body_.subscopes);
        // Last, so that what the other measurements cost is not the scope's own time.
        if ((selected & kElapsedTime) != 0) AddElapsedTime(record, context);
    } catch (const std::bad_alloc&) {
        // The scope stays open with the measurements there was memory for.
    }
}

// The own scope of a context that a factory made counts from the context's birth.
void Scope::AddElapsedTime(MetricsThreadContext& record, detail::ContextState& context) {
    auto* time = new ElapsedTimeSubscope(*this, body_.subscopes);
    body_.subscopes = time;
    const bool fromBirth = body_.data.owner_ == 0 && context.birth.openScope != nullptr;
    if (fromBirth) {
        time->startSeconds_ = context.birth.seconds;
        time->enter_ = MetricsDateTime(context.birth.ticks);
    }
    time->entry_ = record.Contexts().StartMeasuring(context, fromBirth);
}

inline bool Scope::BelongsTo(const MetricsThreadContext* record) const {
    return record != nullptr && record->Serial() == body_.data.owner_;
}

// A pinned context is only known to be there on the thread that pinned it, and on one that works for it now.
detail::ContextState* Scope::ReachableContext(const MetricsThreadContext* record) const {
    if (!IsOurs(record)) return nullptr;
    const bool pinnedHere = body_.data.owner_ == 0 || BelongsTo(record);
    const bool reachable =
        pinnedHere || record->Contexts().Holds(body_.data.context_, body_.data.ContextId());
    return reachable ? body_.data.context_ : nullptr;
}

void Scope::CloseOn(MetricsThreadContext* record) {
    if (body_.subscopes != nullptr) delete std::exchange(body_.subscopes, nullptr);
    bits_ &= ~kOpen;
    if (!BelongsTo(record) || !IsOurs(record)) return CloseElsewhere(record);
    record->Leave(this);
    PostClosingOn(*record, body_.data.context_);
}

// The context may have waited for this to be the last of its scopes, but its own, that closes.
void Scope::PostClosingOn(MetricsThreadContext& record, detail::ContextState* context) noexcept {
    const bool counts = context != nullptr && (bits_ & kNoTimeStack) == 0;
    if (counts) detail::ContextStack::PopTime(*context);
    PostClosing(record);
    if (!counts || context->timeStack.Size() != 1) return;
    if (!context->keepsValues) return;
    if (Context* owner = context->owner.load(std::memory_order_relaxed)) owner->PostKeptValues();
}

// On another thread than it opened on, or under another manager, or a scope that no thread counts as its own.
void Scope::CloseElsewhere(MetricsThreadContext* record) {
    if (BelongsTo(record)) {
        record->Leave(this);
    } else if (body_.data.owner_ != 0) {
        MetricsThreadContext::Depart(body_.data.owner_, {this, nullptr});
    }
    if (IsOurs(record)) PostClosingOn(*record, ReachableContext(record));
}

void Scope::Close() noexcept {
    if (IsOpen()) CloseOn(ThreadRecord());
}

// What nearly every end is: of the innermost scope of this thread, which measured nothing. Its body has
// nothing to destroy.
inline bool Scope::EndsPlainly(const MetricsThreadContext* record) const noexcept {
    return BelongsTo(record) && IsOurs(record) && IsOpen() && body_.subscopes == nullptr &&
           !body_.data.event_.param1.OwnsText() && record->LeavesPlainly(this, body_.data.context_) &&
           !body_.data.context_->timeStack.IsMeasured() && !body_.data.context_->keepsValues;
}

// Everything that ends with the object, with one look for the thread's record.
void Scope::End() noexcept {
    MetricsThreadContext* record = ReadyThreadRecord();
    if (!EndsPlainly(record)) [[unlikely]]
        return EndOther();
    detail::ContextState* context = body_.data.context_;
    record->Leave(this);
    record->Unpin(context);
    context->timeStack.Pop();
    PostClosing(*record);
}

void Scope::EndOther() noexcept {
    MetricsThreadContext* record = ThreadRecord();
    if (IsOpen()) CloseOn(record);
    if (BelongsTo(record)) {
        record->Unpin(body_.data.context_);
        body_.data.owner_ = 0;
    }
    body_.~Body();
}

// An event of this scope with copies of two other values.
inline void Scope::PostValue(const MetricsThreadContext& record, const MetricsValue& name,
                             const MetricsValue& value) const noexcept {
    detail::Core* core = record.Core().get();
    if (core == nullptr) return;
    const MetricsEvent& skeleton = body_.data.event_;
    const std::uint64_t contextId = skeleton.contextId.AsUInt64();
    if (name.OwnsText() || value.OwnsText()) [[unlikely]] {
        PostOrDrop(*core, [&] {
            MetricsEvent event(skeleton.header, contextId, skeleton.timestamp, name, value);
            event.SetType(MetricsEventType::ScopeValue);
            return event;
        });
    } else {
        core->PostBuilt([&](void* place) noexcept {
            constexpr MetricsValue::Bitwise kHow;
            auto* event = new (place) MetricsEvent(MetricsValue(skeleton.header, kHow), contextId,
                                                   MetricsValue(skeleton.timestamp, kHow),
                                                   MetricsValue(name, kHow), MetricsValue(value, kHow));
            event->SetType(MetricsEventType::ScopeValue);
        });
    }
}

bool Scope::Emit(const MetricsValue& name, const MetricsValue& value) noexcept {
    if (!IsOpen()) return false;
    const MetricsThreadContext* record = ThreadRecord();
    if (!IsOurs(record)) return true;
    PostValue(*record, name, value);
    return true;
}

bool Scope::EmitAttribute(const MetricsValue& key, const MetricsValue& value,
                          unsigned long long bits) noexcept {
    if (!detail::GatePasses(bits)) return false;
    if (const MetricsThreadContext* record = ThreadRecord()) {
        try {
            detail::PostNameValue(*record, IsOpen() ? body_.data.ContextId() : record->CurrentId(), key,
                                  value);
        } catch (const std::bad_alloc&) {
        }
    }
    return true;
}

const MetricsValue& Scope::Value() const {
    static const MetricsValue none;
    return live_ ? body_.data.event_.param1 : none;
}

}  // namespace Metrics
