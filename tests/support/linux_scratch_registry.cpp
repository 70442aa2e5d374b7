#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/support/scratch_registry.h"

namespace test_support {

namespace fs = std::filesystem;

struct ScratchRegistry::Place {
    fs::path Hive(ScratchRegistry::Hive hive) const {
        return root / (hive == platform::RegistryHive::LocalMachine ? "HKEY_LOCAL_MACHINE" : "HKEY_CURRENT_USER");
    }

    fs::path Key(ScratchRegistry::Hive hive, std::string path) const {
        std::replace(path.begin(), path.end(), '\\', '/');
        return Hive(hive) / path;
    }

    fs::path root;
};

ScratchRegistry::ScratchRegistry() : place_(new Place) {
    char name[] = "/tmp/vexlane-registry-XXXXXX";
    place_->root = mkdtemp(name);
    setenv("VEXLANE_REGISTRY", place_->root.c_str(), 1);
}

ScratchRegistry::~ScratchRegistry() {
    unsetenv("VEXLANE_REGISTRY");
    fs::remove_all(place_->root);
    delete place_;
}

void ScratchRegistry::MakeKey(Hive hive, const std::string& path) {
    fs::create_directories(place_->Key(hive, path));
}

void ScratchRegistry::StoreBytes(Hive hive, const std::string& path, const std::string& name,
                                 const std::string& bytes) {
    MakeKey(hive, path);
    std::ofstream(place_->Key(hive, path) / name, std::ios::binary) << bytes;
}

void ScratchRegistry::StoreText(Hive hive, const std::string& path, const std::string& name, const std::string& text) {
    StoreBytes(hive, path, name, text);
}

void ScratchRegistry::StoreNumber(Hive hive, const std::string& path, const std::string& name, std::uint32_t number) {
    std::array<char, sizeof(number)> bytes{};
    std::memcpy(bytes.data(), &number, bytes.size());
    StoreBytes(hive, path, name, std::string(bytes.data(), bytes.size()));
}

// Puts a file in place of the hive's folder.
void ScratchRegistry::Block(Hive hive) {
    std::ofstream(place_->Hive(hive)) << "no folder";
}

bool ScratchRegistry::HasKey(Hive hive, const std::string& path) const {
    return fs::is_directory(place_->Key(hive, path));
}

bool ScratchRegistry::IsEmpty(Hive hive, const std::string& path) const {
    const fs::path key = place_->Key(hive, path);
    return !fs::is_directory(key) || fs::is_empty(key);
}

}  // namespace test_support
