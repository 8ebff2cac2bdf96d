#include "metrics/Scope.h"

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

std::uint64_t WithType(std::uint64_t header, MetricsEventType type) {
    constexpr std::uint64_t kTypeField = 0xFC;
    return (header & ~kTypeField) | static_cast<std::uint64_t>(type) << 2;
}

// Whether a scope could open now on what it has, or would get, as its context.
bool IsUsable(const detail::ContextState* context) {
    return context != nullptr && context->id != 0 && context->IsEnabled();
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
                         detail::ContextState& context, std::uint64_t owner)
    : value(about), data(ScopeData::Stamp::Take(MetricsEventType::ScopeOpen, record, &context), owner) {}

// False once the manager that gave the context its id is gone.
inline bool Scope::IsOurs(const MetricsThreadContext* record) const {
    return record != nullptr &&
           static_cast<std::uint32_t>(record->Generation()) == body_.data.stamp_.generation;
}

// An event of this scope with copies of `values`.
template <class... Values>
inline void Scope::Post(const MetricsThreadContext& record, MetricsEventType type,
                        const Values&... values) const noexcept {
    detail::Core* core = record.Core().get();
    if (core == nullptr) return;
    if ((values.OwnsText() || ...)) [[unlikely]]
        return PostTexts(*core, type, values...);
    const ScopeData::Stamp& stamp = body_.data.stamp_;
    core->PostBuilt([&](void* place) noexcept {
        new (place) MetricsEvent(WithType(stamp.header, type), stamp.contextId, MetricsDateTime(stamp.ticks),
                                 MetricsValue(values, MetricsValue::Bitwise{})...);
    });
}

// The same with copies for which there may be no memory.
void Scope::PostTexts(detail::Core& core, MetricsEventType type, const MetricsValue& first,
                      const MetricsValue& second) const noexcept {
    const ScopeData::Stamp& stamp = body_.data.stamp_;
    try {
        core.Post(MetricsEvent(WithType(stamp.header, type), stamp.contextId, MetricsDateTime(stamp.ticks),
                               first, second));
    } catch (const std::bad_alloc&) {
        core.CountDropped();
    }
}

// The order of events: the context's identification, the component, the opening, the measurements.
[[gnu::always_inline]] inline void Scope::Begin(MetricsThreadContext& record, const char* file, int line) {
    detail::ContextState& context = *body_.data.stamp_.context;
    if (!context.identified.load(std::memory_order_relaxed)) [[unlikely]] {
        if (Context* owner = context.owner.load(std::memory_order_relaxed)) owner->OpenScope();
    }
    bits_ = (bits_ | kOpen) & ~kPlugin;
    if (record.announceComponent) [[unlikely]]
        AnnounceComponent(record, body_.data.stamp_.contextId);
    Post(record, MetricsEventType::ScopeOpen, body_.value);
    if (body_.data.owner_ != 0) record.Enter(this);
    if ((bits_ & kNoTimeStack) == 0) {
        context.timeStack.Push();
        const auto selected = (detail::enableMask.load(std::memory_order_relaxed) | bits_) & kSubscopeBits;
        if (selected != 0) [[unlikely]]
            AddSubscopes(context, selected, file, line);
    }
}

// Not the first opening on the current context, for which alone the above is inlined.
void Scope::BeginOther(MetricsThreadContext& record, const char* file, int line) {
    Begin(record, file, line);
}

Scope::Scope(OnContext, MetricsThreadContext& record, detail::ContextState& context,
             const MetricsValue& value, unsigned long long bits)
    : bits_(bits) {
    try {
        new (&body_) Body(value, record, context, 0);
        live_ = true;
        BeginOther(record, nullptr, 0);
    } catch (const std::bad_alloc&) {
        // It stays closed.
    }
}

bool Scope::Open(const MetricsValue& value, const char* file, int line) noexcept {
    MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr) return false;
    if (live_) [[unlikely]]
        return OpenAgain(*record, value, file, line);
    detail::ContextState* context = record->Current();
    if (!IsUsable(context)) return false;
    try {
        new (&body_) Body(value, *record, *context, record->Serial());
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
    if (IsOpen() || !IsUsable(ReachableContext(&record))) return false;
    try {
        body_.value = value;
        BeginOther(record, file, line);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void Scope::OpenAt(detail::CallSite& site, int line) noexcept {
    const MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr || !IsUsable(record->Current())) return;
    try {
        const auto& texts = detail::KeepTexts(site);
        Open(MetricsValue::Ref(texts.name), texts.file, line);
    } catch (const std::bad_alloc&) {
    }
}

void Scope::OpenNamed(std::string_view name, detail::CallSite& site, int line) noexcept {
    const MetricsThreadContext* record = ThreadRecord();
    if (record == nullptr || !IsUsable(record->Current())) return;
    try {
        Open(MetricsValue(name), detail::KeepTexts(site).file, line);
    } catch (const std::bad_alloc&) {
    }
}

void Scope::AddSubscopes(detail::ContextState& context, unsigned long long selected, const char* file,
                         int line) {
    try {
        if ((selected & kLocation) != 0)
            body_.subscopes = new LocationSubscope(*this, body_.subscopes, file, line);
        if ((selected & kMemory) != 0) body_.subscopes = new MemoryMonitorSubscope(*this, body_.subscopes);
        if ((selected & kElapsedTime) != 0) {
            // Read here, so that what the other measurements cost is not the scope's own time.
            const platform::ProcessorTime now = platform::ThreadProcessorTime();
            context.timeStack.Start({now.total, now.user});
            body_.subscopes = new ElapsedTimeSubscope(*this, body_.subscopes);
        }
    } catch (const std::bad_alloc&) {
        // The scope stays open with the measurements there was memory for.
    }
}

inline bool Scope::BelongsTo(const MetricsThreadContext* record) const {
    return record != nullptr && record->Serial() == body_.data.owner_;
}

// A pinned context is only known to be there on the thread that pinned it.
detail::ContextState* Scope::ReachableContext(const MetricsThreadContext* record) const {
    if (!IsOurs(record)) return nullptr;
    return body_.data.owner_ == 0 || BelongsTo(record) ? body_.data.stamp_.context : nullptr;
}

inline void Scope::CloseOn(MetricsThreadContext* record) {
    if (body_.subscopes != nullptr) [[unlikely]]
        delete std::exchange(body_.subscopes, nullptr);
    bits_ &= ~kOpen;
    if (!BelongsTo(record) || !IsOurs(record)) [[unlikely]]
        return CloseElsewhere(record);
    record->Leave(this);
    if ((bits_ & kNoTimeStack) == 0) body_.data.stamp_.context->timeStack.Pop();
    Post(*record, MetricsEventType::ScopeClose, body_.value);
}

// On another thread than it opened on, or under another manager, or a scope that no thread counts as its own.
void Scope::CloseElsewhere(MetricsThreadContext* record) {
    if (BelongsTo(record)) {
        record->Leave(this);
    } else if (body_.data.owner_ != 0) {
        MetricsThreadContext::Depart(body_.data.owner_, {this, nullptr});
    }
    if (record == nullptr) return;  // the thread's last moments
    if ((bits_ & kNoTimeStack) == 0) {
        if (detail::ContextState* context = ReachableContext(record)) context->timeStack.Pop();
    }
    if (IsOurs(record)) Post(*record, MetricsEventType::ScopeClose, body_.value);
}

void Scope::Close() noexcept {
    if (IsOpen()) CloseOn(ThreadRecord());
}

// Everything that ends with the object, with one look for the thread's record.
void Scope::End() noexcept {
    MetricsThreadContext* record = ThreadRecord();
    if (IsOpen()) CloseOn(record);
    if (BelongsTo(record)) [[likely]] {
        record->Unpin(body_.data.stamp_.context);
        body_.data.owner_ = 0;
    }
    body_.~Body();
}

bool Scope::Emit(const MetricsValue& name, const MetricsValue& value) noexcept {
    if (!IsOpen()) return false;
    const MetricsThreadContext* record = ThreadRecord();
    if (!IsOurs(record)) return true;
    Post(*record, MetricsEventType::ScopeValue, name, value);
    return true;
}

bool Scope::EmitAttribute(const MetricsValue& key, const MetricsValue& value,
                          unsigned long long bits) noexcept {
    if (!detail::GatePasses(bits)) return false;
    if (const MetricsThreadContext* record = ThreadRecord()) {
        try {
            detail::PostNameValue(*record, IsOpen() ? body_.data.stamp_.contextId : record->CurrentId(), key,
                                  value);
        } catch (const std::bad_alloc&) {
        }
    }
    return true;
}

const MetricsValue& Scope::Value() const {
    static const MetricsValue none;
    return live_ ? body_.value : none;
}

Scope* Scope::Innermost() {
    MetricsThreadContext* record = ThreadRecord();
    return record != nullptr ? record->Innermost() : nullptr;
}

void detail::EmitAt(CallSite& site, Scope& scope, const MetricsValue& value) {
    try {
        scope.Emit(MetricsValue::Ref(KeepTexts(site).name), value);
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace Metrics
