#include "metrics/rows/Bring.h"

namespace Metrics::detail {
namespace {
constexpr std::size_t kKeptCapacity = 4096;  // of a text: one huge value must not stay for ever
}

void BringRef::Recycle(Bring* bring) {
    bring->pool->Release(bring);
}

BringRef BringPool::Take(std::uint32_t level, std::size_t fields) {
    if (free_.empty()) {
        free_.reserve(all_.size() + 1);  // so that Release() cannot fail
        all_.push_back(std::make_unique<Bring>());
        free_.push_back(all_.back().get());
        free_.back()->pool = this;
    }
    Bring* const bring = free_.back();
    bring->fields.resize(fields);
    free_.pop_back();
    bring->level = level;
    bring->used = false;
    return BringRef(bring);
}

void BringPool::Release(Bring* bring) {
    for (Bring::Field& field : bring->fields) {
        field.state = Bring::FieldState::Unknown;
        field.nearest = nullptr;
        if (field.text.capacity() > kKeptCapacity) {
            field.text = std::string();
        } else {
            field.text.clear();
        }
    }
    free_.push_back(bring);
}

}  // namespace Metrics::detail
