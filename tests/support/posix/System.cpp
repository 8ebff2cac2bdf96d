#include <dlfcn.h>

#include <fstream>
#include <string>

#include "tests/support/Memory.h"
#include "tests/support/Module.h"
#include "tests/support/Wine.h"

std::int64_t Metrics::Testing::ResidentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::stoll(line.substr(6));
    }
    return 0;
}

bool Metrics::Testing::UnderWine() {
    return false;
}

Module::Module(const char* path) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}

void Module::Free() {
    dlclose(handle_);
}

bool Module::IsPresent(const char* path) {
    void* handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

Module::Address Module::FindAddress(const char* symbol) const {
    return reinterpret_cast<Address>(dlsym(handle_, symbol));
}
