#include "tests/plugin/posix_plugin.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace plugin_test {

namespace {

namespace fs = std::filesystem;

void* Load(const char* path) {
    void* const loaded = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return loaded;
}

template <class Function>
void Find(void* library, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(dlsym(library, name));
    if (function == nullptr) {
        throw std::runtime_error(dlerror());
    }
}

std::string ReadFile(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

fs::path MakeTemporaryFolder() {
    char name[] = "/tmp/vexlane-plugin-XXXXXX";
    if (mkdtemp(name) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    return name;
}

}  // namespace

Plugin::Plugin() : engine(Load(VEXLANE_ENGINE)), library(Load(VEXLANE_PLUGIN)) {
    Find(library, OKM8::ExportName::InitializeModule, InitializeModule);
    Find(library, OKM8::ExportName::GetModule, GetModule);
    Find(library, OKM8::ExportName::FinalizeModule, FinalizeModule);
}

Plugin::~Plugin() {
    Unload();
}

void Plugin::Unload() {
    for (void** const loaded : {&library, &engine}) {
        if (*loaded != nullptr) {
            dlclose(*loaded);
            *loaded = nullptr;
        }
    }
}

bool IsMapped(const std::string& fileName) {
    return ReadFile("/proc/self/maps").find("/" + fileName) != std::string::npos;
}

StandardError::StandardError() : before(dup(STDERR_FILENO)) {
    char name[] = "/tmp/vexlane-stderr-XXXXXX";
    const int caught = mkstemp(name);
    file = name;
    dup2(caught, STDERR_FILENO);
    close(caught);
    // Each write goes to the end, wherever the text is read meanwhile.
    fcntl(STDERR_FILENO, F_SETFL, O_APPEND);
}

StandardError::~StandardError() {
    dup2(before, STDERR_FILENO);
    close(before);
    fs::remove(file);
}

std::string StandardError::Text() const {
    return ReadFile(file);
}

TestFolder::TestFolder() : folder(MakeTemporaryFolder()) {
    setenv("VEXLANE_REGISTRY", (folder / "registry").c_str(), 1);
    setenv("VEXLANE_SCRIPT", (folder / "script.json").c_str(), 1);
    SetScript("{}");
}

TestFolder::~TestFolder() {
    unsetenv("VEXLANE_REGISTRY");
    unsetenv("VEXLANE_SCRIPT");
    fs::remove_all(folder);
}

fs::path TestFolder::RegistryKey() const {
    return folder / "registry" / "HKEY_LOCAL_MACHINE" / "SOFTWARE" / "Tellumark" / "KORA" / "DEBUG";
}

void TestFolder::SetDebugLevel(const std::string& text) const {
    fs::create_directories(RegistryKey());
    std::ofstream(RegistryKey() / "DebugLevel", std::ios::binary) << text;
}

void TestFolder::SetScript(const std::string& json) const {
    std::ofstream(folder / "script.json", std::ios::binary) << json;
}

}  // namespace plugin_test
