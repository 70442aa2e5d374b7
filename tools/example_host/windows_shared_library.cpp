#include <windows.h>

#include <stdexcept>

#include "shared_library.h"

namespace example_host {

void* LoadSharedLibrary(const std::string& path) {
    char full[MAX_PATH] = "";  // LOAD_WITH_ALTERED_SEARCH_PATH needs an absolute path
    GetFullPathNameA(path.c_str(), MAX_PATH, full, nullptr);
    const HMODULE library = LoadLibraryExA(full, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (library == nullptr) {
        throw std::runtime_error("cannot load \"" + path + "\": system error " + std::to_string(GetLastError()));
    }
    return library;
}

void* FindFunction(void* library, const char* name) {
    const FARPROC function = GetProcAddress(static_cast<HMODULE>(library), name);
    if (function == nullptr) {
        throw std::runtime_error(std::string("the library does not export ") + name);
    }
    return reinterpret_cast<void*>(function);
}

}  // namespace example_host
