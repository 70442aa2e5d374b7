/// What checks of the library need from the system.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace validate {

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

/// Makes the library's registry private to this process from now on. `folder` is empty.
void BeginPrivateRegistry(const std::filesystem::path& folder);
void EndPrivateRegistry();

/// Writes the debug level to its key in the machine's hive.
void WriteDebugLevel(const std::string& text);
bool HasEmptyDebugKey();

/// Returns the names that a library's file exports.
std::vector<std::string> ExportedNames(const std::filesystem::path& file);

/// Returns the number of threads of this process.
int ThreadCount();

/// Returns the path in UTF-8, as an argument of a program.
std::string PathText(const std::filesystem::path& path);

/// How a process ended.
struct ProcessEnd {
    bool isTimedOut = false;
    std::string crash;  ///< "signal 11", "exception 0xC0000005"; empty for none
    int status = 0;
};

/// Runs a program without input and output, and waits for its end. It is killed after the limit and when `mustStop`
/// returns true. Its standard error goes to a file. Throws std::runtime_error when it cannot be started. Any thread.
ProcessEnd RunProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      std::chrono::milliseconds limit, const std::filesystem::path& errors,
                      const std::function<bool()>& mustStop);

/// Called once in the process of a case: it ends with its parent, and a crash opens no window.
void PrepareCaseProcess();

}  // namespace validate
