#include <cstring>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

std::string ErrorText(int number) {
    char buffer[128];
    return strerror_r(number, buffer, sizeof(buffer));
}

std::string SystemErrorText(std::uint32_t number) {
    return ErrorText(static_cast<int>(number));
}

}  // namespace Metrics::platform
