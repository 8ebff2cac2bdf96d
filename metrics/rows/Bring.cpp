#include "metrics/rows/Bring.h"

namespace Metrics::detail {

void BringPool::Grow() {
    free_.reserve(all_.size() + 1);  // so that Release() cannot fail
    all_.push_back(std::make_unique<Bring>());
    free_.push_back(all_.back().get());
    free_.back()->pool = this;
}

}  // namespace Metrics::detail
