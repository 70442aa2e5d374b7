/// The built library, loaded as a host loads it, and objects driven by the slots of their tables.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "sdk/module.h"

namespace plugin_test {

/// Calls the operation in a slot with the raw arguments. Any object of the contract.
template <class Result, class... Arguments>
Result CallSlot(void* object, std::size_t slot, Arguments... arguments) {
    void** const table = *static_cast<void***>(object);
    const auto operation = reinterpret_cast<Result (*)(void*, Arguments...)>(table[slot]);
    return operation(object, arguments...);
}

/// Loads the scripted engine by its path, so that it is the one that is bound, and then the library.
class Plugin {
  public:
    Plugin();
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    /// Gives library and engine back, once.
    void Unload();

    OKM8::Analytics::InitializeModuleFunction* InitializeModule = nullptr;
    OKM8::Analytics::GetModuleFunction* GetModule = nullptr;
    OKM8::Analytics::FinalizeModuleFunction* FinalizeModule = nullptr;

  private:
    void* engine = nullptr;
    void* library = nullptr;
};

/// Whether a file of that name is mapped into this process.
bool IsMapped(const std::string& fileName);

/// This process's standard error, caught in a file for as long as it lives.
class StandardError {
  public:
    StandardError();
    ~StandardError();
    StandardError(const StandardError&) = delete;
    StandardError& operator=(const StandardError&) = delete;

    /// What has been written until now.
    std::string Text() const;

  private:
    std::filesystem::path file;
    int before;
};

/// The registry and the engine's script of one test, in a folder of its own that the environment names.
class TestFolder {
  public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    void SetDebugLevel(const std::string& text) const;
    std::filesystem::path RegistryKey() const;
    void SetScript(const std::string& json) const;

  private:
    std::filesystem::path folder;
};

}  // namespace plugin_test
