#include "tests/support/Wine.h"

#include <windows.h>

namespace Metrics::Testing {

bool UnderWine() {
    return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace Metrics::Testing
