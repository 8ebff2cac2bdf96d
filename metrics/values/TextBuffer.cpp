#include "metrics/values/TextBuffer.h"

#include <algorithm>
#include <utility>

namespace Metrics::detail {

namespace {

constexpr std::size_t kFirstSize = 1024;

}  // namespace

void TextBuffer::Grow(std::size_t size) {
    const std::string_view old = View();
    const auto capacity = static_cast<std::size_t>(limit_ - begin_);
    const std::size_t wanted = std::max({kFirstSize, 2 * capacity, old.size() + size});
    std::unique_ptr<char[]> memory(new char[wanted]);
    end_ = memory.get() + old.copy(memory.get(), old.size());
    begin_ = memory.get();
    limit_ = begin_ + wanted;
    memory_ = std::move(memory);
}

}  // namespace Metrics::detail
