#include "metrics/output/ContextForest.h"

#include "metrics/output/EventKind.h"

namespace Metrics::detail {

ContextRecord* ContextForest::LookUp(std::uint64_t id) {
    const auto found = records_.find(id);
    if (found == records_.end()) return nullptr;
    return Remembered(id) = &found->second;
}

ContextRecord& ContextForest::FindOrAdd(std::uint64_t id) {
    if (ContextRecord* known = Find(id)) return *known;
    if (records_.size() == found_.size()) found_ = std::vector<ContextRecord*>(2 * found_.size());
    ContextRecord& record = records_.try_emplace(id, id, blocks_).first->second;
    strangers_.push_back(record);
    ++strange_;
    return *(Remembered(id) = &record);
}

RootRecord* ContextForest::FindRoot(std::uint64_t id) {
    const auto found = roots_.find(id);
    return found == roots_.end() ? nullptr : &found->second;
}

RootRecord* ContextForest::AddRoot(std::uint64_t id) {
    ContextRecord& record = FindOrAdd(id);
    if (record.root != nullptr) return nullptr;
    RootRecord& root = roots_.try_emplace(id, id).first->second;
    Adopt(record, root);
    record.inChain = true;
    root.current = &record;
    return &root;
}

RootRecord* ContextForest::SplitOff(ContextRecord& record) {
    const auto [place, isNew] = roots_.try_emplace(record.id, record.id);
    if (!isNew) return nullptr;
    RootRecord& root = place->second;
    record.unlink();
    root.records.push_back(record);
    root.current = &record;
    record.root = &root;
    return &root;
}

void ContextForest::Announce(ContextRecord& parent, std::uint64_t child) {
    ContextRecord& record = FindOrAdd(child);
    if (record.root == nullptr && parent.root != nullptr) Adopt(record, *parent.root);
}

// Takes a stranger into a tree, with the strangers that were announced in what it holds.
void ContextForest::Adopt(ContextRecord& record, RootRecord& root) {
    std::vector<ContextRecord*> joining = {&record};
    while (!joining.empty()) {
        ContextRecord& one = *joining.back();
        joining.pop_back();
        if (one.root != nullptr) continue;
        one.waiting.ForEach([&](const MetricsEvent& event) {
            if (!CreatesChild(event)) return;
            if (ContextRecord* child = Find(CreatedContext(event))) joining.push_back(child);
        });
        one.unlink();
        root.records.push_back(one);
        one.root = &root;
        root.waiting += one.waiting.Size();
        strange_ -= 1 + one.waiting.Size();
    }
}

// One more event is held for strangers.
void ContextForest::CountStrange() {
    ++strange_;
    while (strange_ > kMostStrange) {
        forgotten_ += strangers_.front().waiting.Size();
        Bury(strangers_.front());
    }
}

std::uint64_t ContextForest::StrangeEvents() const {
    std::uint64_t events = 0;
    for (const ContextRecord& record : strangers_) events += record.waiting.Size();
    return events;
}

void ContextForest::Bury(ContextRecord& record) noexcept {
    if (record.root != nullptr) {
        record.root->waiting -= record.waiting.Size();
        if (record.root->current == &record) record.root->current = nullptr;
    } else {
        strange_ -= 1 + record.waiting.Size();
    }
    if (ContextRecord*& remembered = Remembered(record.id); remembered == &record) remembered = nullptr;
    records_.erase(record.id);
}

void ContextForest::Erase(ContextRecord& record) {
    std::vector<std::uint64_t> announced;
    RootRecord* root = record.root;
    ContextRecord* dying = &record;
    for (;;) {
        dying->waiting.ForEach([&](const MetricsEvent& event) {
            if (CreatesChild(event)) announced.push_back(CreatedContext(event));
        });
        Bury(*dying);
        do {
            if (announced.empty()) return;
            dying = Find(announced.back());
            announced.pop_back();
        } while (dying == nullptr || dying->root != root || dying->inChain);
    }
}

void ContextForest::RemoveRoot(RootRecord& root) {
    while (!root.records.empty()) Bury(root.records.front());
    roots_.erase(root.id);
}

}  // namespace Metrics::detail
