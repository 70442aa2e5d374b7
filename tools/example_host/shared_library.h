/// Loading of shared libraries (DLLs).
#pragma once

#include <string>

namespace example_host {

/// Loads a library for the rest of the process, together with what it needs from its own folder.
/// Throws std::runtime_error with the reason.
void* LoadSharedLibrary(const std::string& path);

/// Returns the address of an exported function. Throws std::runtime_error if there is none of that name.
void* FindFunction(void* library, const char* name);

/// FindFunction with the function's type.
template <class Type>
Type* Function(void* library, const char* name) {
    return reinterpret_cast<Type*>(FindFunction(library, name));
}

}  // namespace example_host
