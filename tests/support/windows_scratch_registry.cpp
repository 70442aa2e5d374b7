#include <windows.h>

#include <stdexcept>
#include <vector>

#include "tests/support/scratch_registry.h"

namespace test_support {

namespace {

void Check(LSTATUS status, const char* function) {
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error(std::string(function) + " failed: " + std::to_string(status));
    }
}

HKEY Create(HKEY parent, const std::string& path, DWORD options = REG_OPTION_NON_VOLATILE) {
    HKEY key = nullptr;
    Check(RegCreateKeyExA(parent, path.c_str(), 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &key, nullptr),
          "RegCreateKeyExA");
    return key;
}

HKEY Predefined(platform::RegistryHive hive) {
    return hive == platform::RegistryHive::LocalMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}

}  // namespace

// All keys are under a key of this process, to which the predefined keys are mapped.
struct ScratchRegistry::Place {
    HKEY& Hive(ScratchRegistry::Hive hive) { return hive == platform::RegistryHive::LocalMachine ? machine : user; }

    HKEY root = nullptr;
    HKEY machine = nullptr;
    HKEY user = nullptr;
    std::string name = "Software\\vexlane-test-" + std::to_string(GetCurrentProcessId());
};

ScratchRegistry::ScratchRegistry() : place_(new Place) {
    RegDeleteTreeA(HKEY_CURRENT_USER, place_->name.c_str());  // of a process that crashed
    place_->root = Create(HKEY_CURRENT_USER, place_->name);
    place_->machine = Create(place_->root, "machine");
    place_->user = Create(place_->root, "user");
    for (const Hive hive : {Hive::LocalMachine, Hive::CurrentUser}) {
        Check(RegOverridePredefKey(Predefined(hive), place_->Hive(hive)), "RegOverridePredefKey");
    }
}

ScratchRegistry::~ScratchRegistry() {
    for (const Hive hive : {Hive::LocalMachine, Hive::CurrentUser}) {
        RegOverridePredefKey(Predefined(hive), nullptr);
        RegCloseKey(place_->Hive(hive));
    }
    RegCloseKey(place_->root);
    RegDeleteTreeA(HKEY_CURRENT_USER, place_->name.c_str());
    delete place_;
}

void ScratchRegistry::MakeKey(Hive hive, const std::string& path) {
    RegCloseKey(Create(place_->Hive(hive), path));
}

void ScratchRegistry::StoreBytes(Hive hive, const std::string& path, const std::string& name,
                                 const std::string& bytes) {
    const HKEY key = Create(place_->Hive(hive), path);
    Check(RegSetValueExA(key, name.c_str(), 0, REG_BINARY, reinterpret_cast<const BYTE*>(bytes.data()),
                         static_cast<DWORD>(bytes.size())),
          "RegSetValueExA");
    RegCloseKey(key);
}

void ScratchRegistry::StoreText(Hive hive, const std::string& path, const std::string& name, const std::string& text) {
    const HKEY key = Create(place_->Hive(hive), path);
    // A NUL right after the text would be stored with it.
    const std::string bytes = text + "#";
    Check(RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(bytes.data()),
                         static_cast<DWORD>(text.size())),
          "RegSetValueExA");
    RegCloseKey(key);
}

void ScratchRegistry::StoreNumber(Hive hive, const std::string& path, const std::string& name, std::uint32_t number) {
    const HKEY key = Create(place_->Hive(hive), path);
    Check(RegSetValueExA(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number)),
          "RegSetValueExA");
    RegCloseKey(key);
}

// A permanent key cannot be created under a volatile one.
void ScratchRegistry::Block(Hive hive) {
    HKEY& key = place_->Hive(hive);
    RegCloseKey(key);
    key = Create(place_->root, hive == Hive::LocalMachine ? "blocked-machine" : "blocked-user", REG_OPTION_VOLATILE);
    Check(RegOverridePredefKey(Predefined(hive), key), "RegOverridePredefKey");
}

bool ScratchRegistry::HasKey(Hive hive, const std::string& path) const {
    HKEY key = nullptr;
    if (RegOpenKeyExA(place_->Hive(hive), path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        return false;
    }
    RegCloseKey(key);
    return true;
}

bool ScratchRegistry::IsEmpty(Hive hive, const std::string& path) const {
    HKEY key = nullptr;
    if (RegOpenKeyExA(place_->Hive(hive), path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        return true;
    }
    DWORD keys = 1;
    DWORD values = 1;
    const LSTATUS status = RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr,
                                            nullptr, nullptr, nullptr);
    RegCloseKey(key);
    Check(status, "RegQueryInfoKeyA");
    return keys == 0 && values == 0;
}

}  // namespace test_support
