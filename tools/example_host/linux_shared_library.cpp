#include <dlfcn.h>

#include <stdexcept>

#include "shared_library.h"

namespace example_host {

void* LoadSharedLibrary(const std::string& path) {
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return library;
}

void* FindFunction(void* library, const char* name) {
    void* const function = dlsym(library, name);
    if (function == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return function;
}

}  // namespace example_host
