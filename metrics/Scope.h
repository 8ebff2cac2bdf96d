#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "metrics/Export.h"
#include "metrics/Gate.h"
#include "metrics/MetricsValue.h"
#include "metrics/ScopeData.h"

namespace Metrics {

class Context;
class MetricsSubscope;
class Scope;

namespace detail {

class Core;

/// One place in the code that marks something. Its literals are copied into the library when it first emits,
/// and stay there for ever, so that the module it stands in can be unloaded while its events are queued.
struct CallSite {
    struct Texts {
        const char* name;
        const char* file;
    };

    const char* name;
    const char* file;
    std::atomic<const Texts*> kept{nullptr};
};

/// What a value of METRICS_VALUE is emitted on: one of the two, or neither.
struct ValueTarget {
    Scope* scope = nullptr;
    Context* context = nullptr;

    explicit operator bool() const { return scope != nullptr || context != nullptr; }
};

/// Emits there.
METRICS_API void EmitAt(CallSite& site, const ValueTarget& target, const MetricsValue& value) noexcept;

}  // namespace detail

/// A named, timed stretch of work inside the current context of the thread. It emits an event when it opens
/// and one when it closes; while it is open it carries the measurements that its bits, or the enable mask,
/// select.
///
///     Scope scope(MetricsValue::Ref("parse"));       // open until the end of the block
///     scope.Emit(FourCC("rows"), rows);
///
/// `bits` choose measurements (0x100000 elapsed time, 0x200000 memory, 0x400000 location) or name gates: a
/// scope with gate bits opens only when the manager's enable mask has one of them. Without a current context
/// that is enabled it stays closed, which costs next to nothing. No operation throws; a mark for which there
/// is no memory is dropped.
///
/// A scope belongs to the thread that opens it, and closes there. Closed on another thread it ends all the
/// same, but without its measurements unless its context is attached there. Scopes may overlap, and outlive
/// their context. What its name borrows must stay until the last subscriber has read it; see MetricsValue.
class METRICS_API Scope {
  public:
    static const unsigned long long kElapsedTime = 0x100000;
    static const unsigned long long kMemory = 0x200000;
    static const unsigned long long kLocation = 0x400000;

    /// Only the library can name this: a scope of `context`, whatever is current, that is held by who makes
    /// it.
    class OnContext;
    Scope(OnContext, MetricsThreadContext& record, detail::ContextState& context, const MetricsValue& value,
          unsigned long long bits);

    /// Closed, without bits; `Open` opens it.
    Scope() noexcept {}
    /// Opens at once if it can.
    explicit Scope(const MetricsValue& value, unsigned long long bits = 0) noexcept : bits_(bits & ~kOpen) {
        if (detail::GatePasses(bits)) Open(value, nullptr, 0);
    }
    /// For METRICS_SCOPE: the name, the file and the line of a place in the code.
    Scope(detail::CallSite& site, int line, unsigned long long bits = 0) noexcept : bits_(bits & ~kOpen) {
        if (detail::GatePasses(bits)) OpenAt(site, line);
    }
    /// For METRICS_SCOPE_NAMED: as above, with a copy of `name` that is made only when the scope opens.
    Scope(std::string_view name, detail::CallSite& site, int line, unsigned long long bits = 0) noexcept
        : bits_(bits & ~kOpen) {
        if (detail::GatePasses(bits)) OpenNamed(name, site, line);
    }
    ~Scope() {
        if (live_) End();
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    /// Opens the scope on the thread's current context, or, if it was open before, again on the one it had,
    /// with the same time and sequence number. `file` (borrowed; null for none) and `line` are the location.
    /// True when it became open; false when it was open, or there is no enabled context.
    bool Open(const MetricsValue& value, const char* file, int line) noexcept;

    /// Ends the measurements and emits the closing event. Nothing on a scope that is not open.
    void Close() noexcept;

    bool IsOpen() const { return (bits_ & kOpen) != 0; }

    /// Emits a named measurement while the scope is open; false when it is not.
    bool Emit(const MetricsValue& name, const MetricsValue& value) noexcept;

    /// Emits a name/value pair, an attribute of the next scope that opens in this one's context (while it is
    /// not open: the thread's current context), if `bits` pass the gate. Texts are copied, empty ones left
    /// out. False when the gate held it back.
    bool EmitAttribute(const MetricsValue& key, const MetricsValue& value,
                       unsigned long long bits = 0) noexcept;

    /// The innermost open scope of the calling thread, or null.
    static Scope* Innermost();
    /// For METRICS_VALUE: the innermost one in the current context, else that context.
    static detail::ValueTarget FindValueTarget() noexcept;

    /// What the scope is about (Int64 0 before it first opened), and its bits with its state among them.
    const MetricsValue& Value() const;
    unsigned long long Bits() const { return bits_; }

  private:
    friend class Context;
    friend class SmallScope;

    static detail::ValueTarget FindOtherTarget(MetricsThreadContext& record) noexcept;

    static constexpr unsigned long long kOpen = 0x1000;
    static constexpr unsigned long long kNoTimeStack = 0x10000;
    static constexpr unsigned long long kPlugin = 0x20000;

    // What a scope has once it has opened. A scope that its gate holds back never builds it.
    struct Body {
        Body(const MetricsValue& about, const MetricsThreadContext& record, detail::ContextState& context,
             bool pinned);

        ScopeData data;
        MetricsSubscope* subscopes = nullptr;
    };

    void OpenAt(detail::CallSite& site, int line) noexcept;
    void OpenNamed(std::string_view name, detail::CallSite& site, int line) noexcept;
    bool OpensPlainly(const MetricsThreadContext& record, const MetricsValue& value) const noexcept;
    bool OpenOther(const MetricsValue& value, const char* file, int line) noexcept;
    bool OpenAgain(MetricsThreadContext& record, const MetricsValue& value, const char* file,
                   int line) noexcept;
    void Begin(MetricsThreadContext& record, const char* file, int line);
    void AddSubscopes(MetricsThreadContext& record, detail::ContextState& context,
                      unsigned long long selected, const char* file, int line);
    void AddElapsedTime(MetricsThreadContext& record, detail::ContextState& context);
    void CloseOn(MetricsThreadContext* record);
    void CloseElsewhere(MetricsThreadContext* record);
    void End() noexcept;
    bool EndsPlainly(const MetricsThreadContext* record) const noexcept;
    void EndOther() noexcept;
    bool IsOurs(const MetricsThreadContext* record) const;
    bool BelongsTo(const MetricsThreadContext* record) const;
    detail::ContextState* ReachableContext(const MetricsThreadContext* record) const;
    void Post(const MetricsThreadContext& record) const noexcept;
    void PostClosingOn(MetricsThreadContext& record, detail::ContextState* context) noexcept;
    void PostClosing(const MetricsThreadContext& record) noexcept;
    void PostValue(const MetricsThreadContext& record, const MetricsValue& name,
                   const MetricsValue& value) const noexcept;

    unsigned long long bits_ = 0;
    bool live_ = false;
    union {
        Body body_;  // there while `live_`
    };
};

}  // namespace Metrics
