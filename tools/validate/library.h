/// The library under test, loaded as a host loads it, and what belongs to its process: registry, script, debug output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "sdk/module.h"

namespace validate {

/// Calls the operation in a slot of any contract object with the raw arguments.
template <class Result, class... Arguments>
Result CallSlot(void* object, std::size_t slot, Arguments... arguments) {
    void** const table = *static_cast<void***>(object);
    const auto operation = reinterpret_cast<Result (*)(void*, Arguments...)>(table[slot]);
    return operation(object, arguments...);
}

/// Loads an engine by its path, and then the library, which binds to that engine. Throws std::runtime_error when one of
/// them cannot be loaded or a function is missing.
class Library {
  public:
    Library(const std::filesystem::path& engineFile, const std::filesystem::path& libraryFile);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /// Unloads library and engine, once.
    void Unload();

    /// Returns a function of the engine by its exported name, or null.
    void* EngineFunction(const char* name) const;

    OKM8::Analytics::InitializeModuleFunction* InitializeModule = nullptr;
    OKM8::Analytics::GetModuleFunction* GetModule = nullptr;
    OKM8::Analytics::FinalizeModuleFunction* FinalizeModule = nullptr;

  private:
    void* engine_ = nullptr;
    void* library_ = nullptr;
};

/// Whether a file of that name is loaded into this process.
bool IsLoaded(const std::filesystem::path& file);

/// Whether the library stays loaded for as long as it polls, even after an unload, because no thread can be joined
/// while a library is being unloaded.
#if defined(_WIN32)
inline constexpr bool pollingKeepsTheLibrary = true;
#else
inline constexpr bool pollingKeepsTheLibrary = false;
#endif

/// Records this process's debug output during its lifetime. One at a time.
class DebugLines {
  public:
    DebugLines();
    ~DebugLines();
    DebugLines(const DebugLines&) = delete;
    DebugLines& operator=(const DebugLines&) = delete;

    /// Returns the output so far, after that many bytes: all texts in UTF-8, each followed by a line end.
    std::string Text(std::size_t from = 0) const;

  private:
    int before_ = -1;
};

/// The private registry and the scripted engine's script of one test, in an existing folder. One at a time.
class CaseFolder {
  public:
    explicit CaseFolder(std::filesystem::path folder);
    ~CaseFolder();
    CaseFolder(const CaseFolder&) = delete;
    CaseFolder& operator=(const CaseFolder&) = delete;

    const std::filesystem::path& Path() const { return folder_; }

    void SetDebugLevel(const std::string& text) const;
    /// Whether the key of the debug level exists and has no value.
    bool HasEmptyKey() const;
    /// The engine reads the script at its first call.
    void SetScript(const std::string& json) const;

  private:
    const std::filesystem::path folder_;
};

/// Creates a new folder for temporary files, whose name begins with `prefix`.
std::filesystem::path MakeTemporaryFolder(const std::string& prefix);

}  // namespace validate
