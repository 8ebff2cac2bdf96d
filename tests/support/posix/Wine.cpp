#include "tests/support/Wine.h"

namespace Metrics::Testing {

bool UnderWine() {
    return false;
}

}  // namespace Metrics::Testing
