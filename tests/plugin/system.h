/// What the tests of the library need from the system.
#pragma once

#include <filesystem>
#include <string>

namespace plugin_test {

/// Throws an exception with the system's reason.
void* LoadLibraryFile(const std::filesystem::path& file);
void UnloadLibrary(void* library);
/// Null when there is no such function.
void* FindFunction(void* library, const char* name);

/// Makes DebugLines record what a loaded library writes to the debug output.
void CatchDebugOutput(void* library);

#ifdef _WIN32
/// Makes a loaded library call another function instead of one that it imports by name.
void ReplaceImport(void* library, const char* name, void* replacement);
#endif

/// Sets a variable of this process, as the C library's getenv sees it; an empty value unsets it.
void SetEnvironment(const char* name, const std::string& value);

/// Makes the library's registry private to this process from now on. `folder` is an empty folder for this test.
void BeginPrivateRegistry(const std::filesystem::path& folder);
void EndPrivateRegistry();

/// Writes the debug level to its key in the machine's hive.
void WriteDebugLevel(const std::string& text);
bool HasEmptyDebugKey();

}  // namespace plugin_test
