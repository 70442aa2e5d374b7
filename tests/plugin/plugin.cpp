#include "tests/plugin/plugin.h"

#include <chrono>
#include <fstream>
#include <random>
#include <stdexcept>

#include "tests/plugin/system.h"
#include "tests/support/servers.h"

namespace plugin_test {

namespace {

namespace fs = std::filesystem;

// The build passes paths relative to the folder of the programs.
fs::path FromOwnFolder(const char* path) {
    return (servers::OwnFolder() / path).lexically_normal();
}

template <class Function>
void Find(void* library, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(FindFunction(library, name));
    if (function == nullptr) {
        throw std::runtime_error(std::string("the library does not export ") + name);
    }
}

fs::path MakeTemporaryFolder() {
    std::random_device random;
    for (;;) {
        const fs::path made = fs::temp_directory_path() / ("vexlane-plugin-" + std::to_string(random()));
        if (fs::create_directory(made)) {
            return made;
        }
    }
}

void WriteFile(const fs::path& file, const std::string& text) {
    std::ofstream stream(file, std::ios::binary);
    stream << text;
    stream.close();
    if (!stream) {
        throw std::runtime_error(file.string() + " cannot be written");
    }
}

}  // namespace

Plugin::Plugin() : Plugin(FromOwnFolder(VEXLANE_ENGINE)) {}

Plugin::Plugin(const fs::path& enginePath)
    : engine_(LoadLibraryFile(enginePath)), library_(LoadLibraryFile(LibraryFile())) {
    Find(library_, OKM8::ExportName::InitializeModule, InitializeModule);
    Find(library_, OKM8::ExportName::GetModule, GetModule);
    Find(library_, OKM8::ExportName::FinalizeModule, FinalizeModule);
    CatchDebugOutput(library_);
}

Plugin::~Plugin() {
    Unload();
}

void Plugin::Unload() {
    for (void** const loaded : {&library_, &engine_}) {
        if (*loaded != nullptr) {
            UnloadLibrary(*loaded);
            *loaded = nullptr;
        }
    }
}

void* Plugin::EngineFunction(const char* name) const {
    return FindFunction(engine_, name);
}

fs::path LibraryFile() {
    return FromOwnFolder(VEXLANE_PLUGIN);
}

TestFolder::TestFolder() : folder_(MakeTemporaryFolder()) {
    fs::create_directory(folder_ / "registry");
    BeginPrivateRegistry(folder_ / "registry");
    SetEnvironment("VEXLANE_SCRIPT", (folder_ / "script.json").string());
    SetScript("{}");
}

TestFolder::~TestFolder() {
    SetEnvironment("VEXLANE_SCRIPT", "");
    EndPrivateRegistry();
    std::error_code error;
    fs::remove_all(folder_, error);
}

void TestFolder::SetDebugLevel(const std::string& text) const {
    WriteDebugLevel(text);
}

bool TestFolder::HasEmptyKey() const {
    return HasEmptyDebugKey();
}

void TestFolder::SetScript(const std::string& json) const {
    WriteFile(folder_ / "script.json", json);
}

}  // namespace plugin_test
