#include "tests/plugin/plugin.h"

#include <system_error>

#include "tests/support/servers.h"

namespace plugin_test {

namespace {

namespace fs = std::filesystem;

// The build passes paths relative to the folder of the programs.
fs::path FromOwnFolder(const char* path) {
    return (servers::OwnFolder() / path).lexically_normal();
}

}  // namespace

Plugin::Plugin() : Plugin(FromOwnFolder(VEXLANE_ENGINE)) {}

Plugin::Plugin(const fs::path& enginePath) : Library(enginePath, LibraryFile()) {}

fs::path LibraryFile() {
    return FromOwnFolder(VEXLANE_PLUGIN);
}

TemporaryFolder::TemporaryFolder() : made_(validate::MakeTemporaryFolder("vexlane-plugin-")) {}

TemporaryFolder::~TemporaryFolder() {
    std::error_code error;
    fs::remove_all(made_, error);
}

}  // namespace plugin_test
