#pragma once

#include <cstddef>
#include <map>
#include <vector>

#include "tests/manager/model/Scheduler.h"

namespace Metrics::Testing::Model {

/// What the model allocates in a run. Freed memory stays until the run is over, so that its misuse is found.
class Heap {
  public:
    Heap() { current_ = this; }
    ~Heap();
    static Heap& Current() { return *current_; }

    /// So many allocations may fail; which ones is a choice.
    std::size_t mayFail = 0;

    void* Allocate(std::size_t bytes);
    void Free(const void* memory);
    std::size_t Live() const;

    /// A plain access to memory that threads share: of two, one must have happened before the other.
    /// Addresses that were not allocated here are of no interest.
    void Touch(const void* address);

  private:
    struct Range {
        std::byte* begin;
        std::size_t size;
        bool live;
    };
    struct Accesses {
        std::size_t place;
        std::uint32_t count;
    };

    static inline Heap* current_ = nullptr;
    std::vector<Range> ranges_;
    std::map<const void*, Accesses> touched_;
};

}  // namespace Metrics::Testing::Model
