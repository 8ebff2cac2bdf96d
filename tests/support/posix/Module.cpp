#include "tests/support/Module.h"

#include <dlfcn.h>

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
