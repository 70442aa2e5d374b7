/// What the plug-in's tests need of the system.
#pragma once

#include <filesystem>
#include <string>

namespace plugin_test {

/// Throws std::exception with the system's reason.
void* LoadLibraryFile(const std::filesystem::path& file);
void UnloadLibrary(void* library);
/// Null when there is no such function.
void* FindFunction(void* library, const char* name);

/// Makes DebugLines see what a loaded library writes to the debug output.
void CatchDebugOutput(void* library);

#ifdef _WIN32
/// Makes a loaded library call another function in place of one that it imports by name.
void ReplaceImport(void* library, const char* name, void* replacement);
#endif

/// Of this process, as the C library's getenv sees it; an empty value unsets it.
void SetEnvironment(const char* name, const std::string& value);

/// The library's registry, private to this process from now on. `folder` is empty and the test's own.
void BeginPrivateRegistry(const std::filesystem::path& folder);
void EndPrivateRegistry();

/// The key of the debug level in the machine's hive.
void WriteDebugLevel(const std::string& text);
bool HasEmptyDebugKey();

}  // namespace plugin_test
