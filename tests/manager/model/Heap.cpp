#include "tests/manager/model/Heap.h"

#include <algorithm>
#include <new>

namespace Metrics::Testing::Model {

namespace {
constexpr std::align_val_t kAlignment{64};
}  // namespace

Heap::~Heap() {
    for (const Range& range : ranges_) operator delete(range.begin, kAlignment);
}

void* Heap::Allocate(std::size_t bytes) {
    if (mayFail > 0 && Scheduler::Current().Choose(2) == 0) {
        --mayFail;
        return nullptr;
    }
    ranges_.push_back({static_cast<std::byte*>(operator new(bytes, kAlignment)), bytes, true});
    return ranges_.back().begin;
}

void Heap::Free(const void* memory) {
    const auto found = std::find_if(ranges_.begin(), ranges_.end(),
                                    [memory](const Range& range) { return range.begin == memory; });
    if (!found->live) Scheduler::Current().Fail("freed twice");
    found->live = false;
}

std::size_t Heap::Live() const {
    return static_cast<std::size_t>(
        std::count_if(ranges_.begin(), ranges_.end(), [](const Range& range) { return range.live; }));
}

void Heap::Touch(const void* address) {
    const auto found = std::find_if(ranges_.begin(), ranges_.end(), [address](const Range& range) {
        return range.begin <= address && address < range.begin + range.size;
    });
    if (found == ranges_.end()) return;
    Scheduler& scheduler = Scheduler::Current();
    if (!found->live) scheduler.Fail("freed memory is used");
    auto [entry, isNew] = touched_.try_emplace(address, Accesses{0, 0});
    Accesses& accesses = entry->second;
    if (isNew) accesses.place = scheduler.NewPlace();
    if (scheduler.View()[accesses.place] != accesses.count) scheduler.Fail("a data race in a slot");
    scheduler.View().Set(accesses.place, ++accesses.count);
}

}  // namespace Metrics::Testing::Model
