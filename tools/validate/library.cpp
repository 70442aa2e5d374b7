#include "tools/validate/library.h"

#include <fstream>
#include <random>
#include <stdexcept>
#include <utility>

#include "tools/validate/system.h"

namespace validate {

namespace {

namespace fs = std::filesystem;

template <class Function>
void Find(void* library, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(FindFunction(library, name));
    if (function == nullptr) {
        throw std::runtime_error(std::string("the library does not export ") + name);
    }
}

}  // namespace

Library::Library(const fs::path& engineFile, const fs::path& libraryFile)
    : engine_(LoadLibraryFile(engineFile)), library_(LoadLibraryFile(libraryFile)) {
    Find(library_, OKM8::ExportName::InitializeModule, InitializeModule);
    Find(library_, OKM8::ExportName::GetModule, GetModule);
    Find(library_, OKM8::ExportName::FinalizeModule, FinalizeModule);
    CatchDebugOutput(library_);
}

Library::~Library() {
    Unload();
}

void Library::Unload() {
    for (void** const loaded : {&library_, &engine_}) {
        if (*loaded != nullptr) {
            UnloadLibrary(*loaded);
            *loaded = nullptr;
        }
    }
}

void* Library::EngineFunction(const char* name) const {
    return FindFunction(engine_, name);
}

CaseFolder::CaseFolder(fs::path folder) : folder_(std::move(folder)) {
    fs::create_directory(folder_ / "registry");
    BeginPrivateRegistry(folder_ / "registry");
    SetEnvironment("VEXLANE_SCRIPT", (folder_ / "script.json").string());
    SetScript("{}");
}

CaseFolder::~CaseFolder() {
    SetEnvironment("VEXLANE_SCRIPT", "");
    EndPrivateRegistry();
}

void CaseFolder::SetDebugLevel(const std::string& text) const {
    WriteDebugLevel(text);
}

bool CaseFolder::HasEmptyKey() const {
    return HasEmptyDebugKey();
}

void CaseFolder::SetScript(const std::string& json) const {
    std::ofstream stream(folder_ / "script.json", std::ios::binary);
    stream << json;
    stream.close();
    if (!stream) {
        throw std::runtime_error("the engine's script cannot be written to " + folder_.string());
    }
}

fs::path MakeTemporaryFolder(const std::string& prefix) {
    std::random_device random;
    for (;;) {
        fs::path made = fs::temp_directory_path() / (prefix + std::to_string(random()));
        if (fs::create_directory(made)) {
            return made;
        }
    }
}

}  // namespace validate
