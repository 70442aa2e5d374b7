/// A temporary folder for one test.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>

#include "tools/host/system.h"

namespace host_test {

/// Removed by the destructor, with its contents. Names are in UTF-8.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::random_device random;
        do {
            folder_ = std::filesystem::temp_directory_path() / ("plate_host_test_" + std::to_string(random()));
        } while (!std::filesystem::create_directory(folder_));
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    std::string Path(const std::string& name) const {
        return plate_host::ToText((folder_ / plate_host::ToPath(name)).make_preferred());
    }

    std::string Write(const std::string& name, const std::string& bytes) const {
        std::ofstream file(plate_host::ToOpenPath(Path(name)), std::ios::binary);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        file.close();
        if (file.fail()) {
            throw std::runtime_error("cannot write " + Path(name));
        }
        return Path(name);
    }

    std::string MakeFolder(const std::string& name) const {
        std::filesystem::create_directory(folder_ / plate_host::ToPath(name));
        return Path(name);
    }

    /// Copies a file into this folder.
    std::string Copy(const std::string& from, const std::string& name) const {
        std::filesystem::copy_file(plate_host::ToPath(from), folder_ / plate_host::ToPath(name));
        return Path(name);
    }

  private:
    std::filesystem::path folder_;
};

}  // namespace host_test
