#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/plugin/plugin.h"
#include "tests/plugin/system.h"

namespace plugin_test {

namespace {

namespace fs = std::filesystem;

fs::path registry;

fs::path DebugKey() {
    return registry / "HKEY_LOCAL_MACHINE" / "SOFTWARE" / "Tellumark" / "KORA" / "DEBUG";
}

std::string ReadFile(const fs::path& file, std::size_t from) {
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(from));
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

}  // namespace

void* LoadLibraryFile(const fs::path& file) {
    void* const loaded = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return loaded;
}

void UnloadLibrary(void* library) {
    dlclose(library);
}

void* FindFunction(void* library, const char* name) {
    return dlsym(library, name);
}

bool IsLoaded(const fs::path& file) {
    return ReadFile("/proc/self/maps", 0).find('/' + file.filename().string()) != std::string::npos;
}

void SetEnvironment(const char* name, const std::string& value) {
    if (value.empty()) {
        unsetenv(name);
    } else {
        setenv(name, value.c_str(), 1);
    }
}

void BeginPrivateRegistry(const fs::path& folder) {
    registry = folder;
    SetEnvironment("VEXLANE_REGISTRY", folder.string());
}

void EndPrivateRegistry() {
    SetEnvironment("VEXLANE_REGISTRY", "");
}

void WriteDebugLevel(const std::string& text) {
    fs::create_directories(DebugKey());
    std::ofstream(DebugKey() / "DebugLevel", std::ios::binary) << text;
}

bool HasEmptyDebugKey() {
    return fs::is_directory(DebugKey()) && fs::is_empty(DebugKey());
}

// Debug output goes to standard error, which is redirected to a file.

void CatchDebugOutput(void*) {}

DebugLines::DebugLines() : before_(dup(STDERR_FILENO)) {
    char name[] = "/tmp/vexlane-stderr-XXXXXX";
    const int caught = mkstemp(name);
    file_ = name;
    dup2(caught, STDERR_FILENO);
    close(caught);
    // Each write goes to the end, regardless of the read position.
    fcntl(STDERR_FILENO, F_SETFL, O_APPEND);
}

DebugLines::~DebugLines() {
    dup2(before_, STDERR_FILENO);
    close(before_);
    fs::remove(file_);
}

std::string DebugLines::Text(std::size_t from) const {
    return ReadFile(file_, from);
}

}  // namespace plugin_test
