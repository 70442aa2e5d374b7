/// Folders for the sockets of a test's servers, so that the test finds no other servers and leaves no files.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/environment.h"

namespace test_support {

/// Creates a folder with "run" and "tmp" in it, to which XDG_RUNTIME_DIR and TMPDIR point during its lifetime. On
/// Windows the server uses neither.
class RuntimeFolder {
  public:
    RuntimeFolder() {
        std::random_device random;
        folder_ = std::filesystem::temp_directory_path() /
                  ("vexlane-test-" + std::to_string(random()) + "-" + std::to_string(random()));
        Set("XDG_RUNTIME_DIR", "run");
        Set("TMPDIR", "tmp");
    }
    ~RuntimeFolder() {
        for (const auto& [name, value] : former_) {
            if (value) {
                SetEnvironment(name, *value);
            } else {
                UnsetEnvironment(name);
            }
        }
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    RuntimeFolder(const RuntimeFolder&) = delete;
    RuntimeFolder& operator=(const RuntimeFolder&) = delete;

    const std::filesystem::path& Path() const { return folder_; }

  private:
    void Set(const char* name, const char* place) {
        const char* const value = std::getenv(name);
        former_.emplace_back(name, value == nullptr ? std::nullopt : std::optional<std::string>(value));
        std::filesystem::create_directories(folder_ / place);
        std::filesystem::permissions(folder_ / place, std::filesystem::perms::owner_all);
        SetEnvironment(name, (folder_ / place).string());
    }

    std::filesystem::path folder_;
    std::vector<std::pair<const char*, std::optional<std::string>>> former_;
};

}  // namespace test_support
