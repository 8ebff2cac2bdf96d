#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "metrics/Export.h"
#include "metrics/MetricsTimeStack.h"

namespace Metrics {

class ContextGuard;
class ContextTicket;
class MetricsValue;
class Scope;
class MetricsThreadContext;

namespace detail {
struct ContextState;
}

/// A unit of work that is measured, such as a request or a job. While it is attached to a thread and current
/// there, what the thread marks belongs to it. Contexts nest: one that is created while another is current is
/// its child.
///
///     Context request = Context::Root("request");       // attached to this thread
///     request.AddAttribute("path", path);
///     Scope scope(MetricsValue::Ref("parse"));
///     ...
///     request.Emit("status", 200);                      // a value of the request itself
///
/// A context with id 0 (created while the manager is not `Collecting`, or under a disabled one) is disabled:
/// it is attached like any other and emits nothing.
///
/// One thread at a time may use a context. It is destroyed on the thread it is attached to; elsewhere that is
/// logged, and the thread it was attached to goes on stamping its marks with the id until another context
/// covers it. Contexts may close in any order, before their scopes and children too. Closing it (or the
/// destructor) ends it; what the thread attached before becomes current again.
class METRICS_API Context {
  public:
    /// Issues an id, with the calling thread's current context as parent unless `root`, and announces it. 0
    /// if the parent is disabled or the manager is not `Collecting`. The id is for the constructor.
    static unsigned long long Create(bool root);
    /// The same; `onId` is called with the id, even 0, before it is announced.
    static unsigned long long Create(bool root, std::function<void(unsigned long long)> onId);

    /// Constructs the context with an id from `Create`, attaches it to the calling thread and announces it.
    Context(unsigned long long parentId, unsigned long long id);
    /// The context that was handed over, on the thread that does its work.
    explicit Context(ContextTicket&& ticket);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    /// Create, construct and name in one. What these make, and what a ticket is turned into, is never missing
    /// in the output: it opens its own scope (`OpenScope`) at the latest when a child is created under it or
    /// handed over, when another process's events are merged into it, or when it closes. Name and attributes
    /// that come after that are too late. The times of its own scope count from here.
    static Context Root(const std::string& name);
    static Context Child(const std::string& name);
    /// A child of the current context for another thread to work on; see ContextTicket. The current one opens
    /// its own scope, as for any child.
    static ContextTicket Hand(const std::string& name);

    /// The calling thread's current context, or null. Lives as long as its owner keeps it.
    static Context* Current();

    /// Makes this the calling thread's current context. It takes over the enabled flag of the one it covers.
    void AttachToThread();
    /// Takes it off the calling thread's stack of contexts, wherever it stands there.
    void DetachFromThread();

    void Enable(bool enabled);
    bool IsEnabled() const;
    unsigned long long GetContextId() const;
    unsigned long long GetParentContextId() const;
    /// The system's id of the thread it was last attached to, 0 when it is not attached.
    int GetThreadId() const;
    void SetThreadId(int id);
    /// The component that identifies it; at first that of the constructing thread.
    void SetComponentId(unsigned long long id);
    /// What its own scope is called; "cxt" at first.
    void SetName(const std::string& name);
    /// The open scopes of this context and the processor time they used.
    MetricsTimeStack& GetTimeStack();

    /// Something to tell of the context with its own scope; the last value of a name counts. Once that scope
    /// is open it comes too late: it is kept, not written, and that is logged once.
    void AddAttribute(const std::string& name, const std::string& value);
    void AddNameValue(const std::string& name, const std::string& value);

    /// A value of the context itself, such as the status it ends with. It stands beside its scopes, not in
    /// one of them: while one is open the value is kept until the last of them has closed, at the latest
    /// until the context closes; before its own scope opens (which this does not do) until that opens.
    /// Each is emitted, in order. What is borrowed must stay until then and until the last subscriber has
    /// read it. False on a context that is disabled or closed, or when there is no memory to keep it.
    bool Emit(const MetricsValue& name, const MetricsValue& value) noexcept;

    /// Emits the context's identification (process, thread, context, component, attributes), opens its own
    /// scope and emits its name/values. The first scope that opens in it does this; later calls do nothing.
    void OpenScope();

    /// Ends the context: closes its own scope, announces the end and detaches it. A second call does nothing.
    /// Scopes of it that are still open close later, into an output that counts them as ended.
    void Close();

    /// Logs if this is no live context.
    void Validate() const;

  private:
    friend class ContextGuard;
    friend class Scope;

    using TextMap = std::map<std::string, std::string>;
    struct KeptValue;

    Context(unsigned long long parentId, unsigned long long id, const std::string& name);

    void Begin(bool byFactory);
    void PostKeptValues() noexcept;
    void LeaveOutKeptValues() noexcept;
    void Identify(MetricsThreadContext& record);
    void AddText(std::unique_ptr<TextMap>& map, const std::string& name, const std::string& value);
    void ReportForeignDestruction() const;

    std::uint32_t magic_;
    bool open_ = false;
    std::string name_ = "cxt";
    std::uint64_t componentId_;
    std::unique_ptr<TextMap> attributes_;
    std::unique_ptr<TextMap> nameValues_;
    std::unique_ptr<Scope> ownScope_;
    std::vector<KeptValue> keptValues_;
    detail::ContextState* state_;  // shared with thread stacks and scopes
};

/// A context that one thread creates, as a child of its current one, for another to work on:
///
///     auto ticket = Context::Hand("chunk");                       // where the parent is current
///     pool.Run([ticket = std::move(ticket)]() mutable {
///         Context chunk(std::move(ticket));                       // where the work is done
///         ...
///     });
///
/// It stands in the parent's output where it was handed over. A ticket that is destroyed without being used
/// ends its context, so that the parent's output doesn't wait for it; it leaves no scope.
class METRICS_API ContextTicket {
  public:
    ContextTicket(ContextTicket&& other) noexcept;
    ContextTicket& operator=(ContextTicket&& other) noexcept;
    ~ContextTicket();

    /// 0 when there is nothing to work on (the parent was disabled), or no longer.
    unsigned long long GetContextId() const { return id_; }

  private:
    friend class Context;

    ContextTicket(std::uint64_t parentId, std::uint64_t id, std::string name);
    bool IsOurs() const noexcept;
    void Discard() noexcept;

    std::uint64_t generation_;  // of the manager that gave the ids
    std::uint64_t parentId_;
    std::uint64_t id_;
    std::string name_;
};

}  // namespace Metrics
