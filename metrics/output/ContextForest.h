#pragma once

#include <boost/intrusive/list.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include "metrics/output/EventFifo.h"

namespace Metrics::detail {

struct Audience;
struct RootRecord;
struct RootStream;

using RecordHook =
    boost::intrusive::list_base_hook<boost::intrusive::link_mode<boost::intrusive::auto_unlink>>;

// What is known of one context.
struct ContextRecord : RecordHook {
    ContextRecord(std::uint64_t contextId, EventBlocks& blocks) : id(contextId), waiting(blocks) {}

    const std::uint64_t id;
    RootRecord* root = nullptr;  // whose tree it grows in; null while nobody has announced it
    EventFifo waiting;           // not yet released
    std::uint32_t openScopes = 0;
    std::uint32_t component = 0;  // that constructed it
    bool open = false;            // constructed and not closed, as far as events have arrived
    bool inChain = false;         // its root is at it, or at something nested in it
};

using RecordList = boost::intrusive::list<ContextRecord, boost::intrusive::constant_time_size<false>>;

// A root and where its output stands.
struct RootRecord {
    explicit RootRecord(std::uint64_t contextId) : id(contextId), chain{contextId} {}

    const std::uint64_t id;
    std::vector<std::uint64_t> chain;  // the root first, the context whose events come next last
    ContextRecord* current = nullptr;  // the last of the chain; null when there is nothing of it
    RecordList records;                // all of its tree
    std::size_t waiting = 0;           // events held for its tree
    Audience* audience = nullptr;      // who wants its output; this and the next are kept here for others
    RootStream* stream = nullptr;
};

// All contexts that are known, grown together into trees by their announcements.
//
// A context of which something arrives before its announcement is a stranger. Strangers hold their events and
// join a tree when they are announced; of those that never are, the oldest are forgotten.
class ContextForest {
  public:
    static constexpr std::size_t kMostStrange = 65536;  // strangers and their events together

    ContextForest() = default;

    ContextRecord* Find(std::uint64_t id) {
        ContextRecord* record = Remembered(id);
        return record != nullptr && record->id == id ? record : LookUp(id);
    }
    ContextRecord& FindOrAdd(std::uint64_t id);
    // What probably is the record of a context, or null; looks nothing up.
    const ContextRecord* Guess(std::uint64_t id) const { return found_[id & (found_.size() - 1)]; }
    std::size_t Size() const { return records_.size(); }
    RootRecord* FindRoot(std::uint64_t id);
    std::map<std::uint64_t, RootRecord>& Roots() { return roots_; }
    // The root with the lowest id, or null.
    RootRecord* LowestRoot() { return roots_.empty() ? nullptr : &roots_.begin()->second; }

    // Plants a tree. Null when there is one already, or when the context grows in another.
    RootRecord* AddRoot(std::uint64_t id);
    // A context of which nothing is held becomes a root of its own. Null when there is one of that id.
    RootRecord* SplitOff(ContextRecord& record);
    // `child` was created in the stream of `parent`.
    void Announce(ContextRecord& parent, std::uint64_t child);

    void Hold(ContextRecord& record, const MetricsEvent& event) {
        record.waiting.Push(event);
        if (record.root != nullptr) {
            ++record.root->waiting;
        } else {
            CountStrange();
        }
    }
    void PopFront(ContextRecord& record, std::size_t count) noexcept {
        record.waiting.Pop(count);
        record.root->waiting -= count;
    }

    // Forgets a context with what it holds, and the contexts announced in that.
    void Erase(ContextRecord& record);
    // Forgets a root with its whole tree.
    void RemoveRoot(RootRecord& root);

    // Events of strangers: that are held, and that were forgotten since the last time.
    std::uint64_t StrangeEvents() const;
    std::uint64_t TakeForgotten() { return std::exchange(forgotten_, 0); }

    EventBlocks& Blocks() { return blocks_; }
    const EventBlocks& Blocks() const { return blocks_; }

  private:
    ContextRecord*& Remembered(std::uint64_t id) { return found_[id & (found_.size() - 1)]; }
    ContextRecord* LookUp(std::uint64_t id);
    void Adopt(ContextRecord& record, RootRecord& root);
    void Bury(ContextRecord& record) noexcept;
    void CountStrange();

    EventBlocks blocks_;
    std::unordered_map<std::uint64_t, ContextRecord> records_;
    std::map<std::uint64_t, RootRecord> roots_;
    RecordList strangers_;  // oldest first
    std::size_t strange_ = 0;
    std::uint64_t forgotten_ = 0;
    // Where records were found before; there are as many places, a power of two, as there were records at any
    // time. Ids are given out in sequence, so those in use seldom share a place.
    std::vector<ContextRecord*> found_{1024};
};

}  // namespace Metrics::detail
