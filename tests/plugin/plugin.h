/// The built library, loaded as a host loads it, and calls through table slots.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "sdk/module.h"

namespace plugin_test {

/// Calls the operation in a slot of any contract object with the raw arguments.
template <class Result, class... Arguments>
Result CallSlot(void* object, std::size_t slot, Arguments... arguments) {
    void** const table = *static_cast<void***>(object);
    const auto operation = reinterpret_cast<Result (*)(void*, Arguments...)>(table[slot]);
    return operation(object, arguments...);
}

/// Loads an engine by its path, and then the library, which binds to that engine.
class Plugin {
  public:
    /// With the scripted engine.
    Plugin();
    explicit Plugin(const std::filesystem::path& enginePath);
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

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

/// The library's file.
std::filesystem::path LibraryFile();

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
    std::filesystem::path file_;
    int before_ = -1;
};

/// The private registry and the engine's script of one test. One at a time.
class TestFolder {
  public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::filesystem::path& Path() const { return folder_; }

    void SetDebugLevel(const std::string& text) const;
    /// Whether the key of the debug level exists and has no value.
    bool HasEmptyKey() const;
    void SetScript(const std::string& json) const;

  private:
    void SetVariable(const char* name, const std::string& value) const;

    std::filesystem::path folder_;
};

}  // namespace plugin_test
