#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/process.h"

namespace host_test {
namespace {

using testing::HasSubstr;

std::string InfoOutput(const std::vector<std::pair<std::string, std::optional<std::string>>>& environment) {
    HostProcess process({.arguments = {"info", "--plugin", HOST_TEST_PLUGIN, "--engine", HOST_TEST_ENGINE_ONE},
                         .environment = environment});
    return process.Wait().output;
}

TEST(LinuxInfo, TheDebugLevelIsReadFromTheFoldersThatTheEnvironmentNames) {
    EXPECT_THAT(InfoOutput({{"VEXLANE_REGISTRY", "/some/registry"}}),
                HasSubstr("  /some/registry/HKEY_LOCAL_MACHINE/SOFTWARE/Tellumark/KORA/DEBUG/DebugLevel\n"
                          "  /some/registry/HKEY_CURRENT_USER/SOFTWARE/Tellumark/KORA/DEBUG/DebugLevel\n"));
    EXPECT_THAT(InfoOutput({{"VEXLANE_REGISTRY", std::nullopt}, {"XDG_CONFIG_HOME", "/home/x/conf"}}),
                HasSubstr("  /etc/vexlane/HKEY_LOCAL_MACHINE/SOFTWARE/Tellumark/KORA/DEBUG/DebugLevel\n"
                          "  /home/x/conf/vexlane/HKEY_CURRENT_USER/SOFTWARE/Tellumark/KORA/DEBUG/DebugLevel\n"));
}

// As the library does: a relative folder would be a different one for each program.
TEST(LinuxInfo, ARelativeConfigurationFolderIsIgnored) {
    EXPECT_THAT(InfoOutput({{"VEXLANE_REGISTRY", std::nullopt}, {"XDG_CONFIG_HOME", "relative"}, {"HOME", "/home/x"}}),
                HasSubstr("  /home/x/.config/vexlane/HKEY_CURRENT_USER/SOFTWARE/Tellumark/KORA/DEBUG/DebugLevel\n"));
}

}  // namespace
}  // namespace host_test
