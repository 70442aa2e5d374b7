#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/process.h"

namespace host_test {
namespace {

using testing::HasSubstr;

TEST(WindowsInfo, TheDebugLevelIsReadFromTheKeysAsTheRegistryEditorShowsThem) {
    const Finished run = RunHost({"info", "--plugin", HOST_TEST_PLUGIN, "--engine", HOST_TEST_ENGINE_ONE});
    EXPECT_THAT(run.output, HasSubstr("  HKEY_LOCAL_MACHINE\\SOFTWARE\\WOW6432Node\\Tellumark\\KORA\\DEBUG ("));
    EXPECT_THAT(run.output, HasSubstr("  HKEY_CURRENT_USER\\SOFTWARE\\Tellumark\\KORA\\DEBUG\n"));
    EXPECT_THAT(run.output, HasSubstr("  HKEY_LOCAL_MACHINE\\SOFTWARE\\Tellumark\\KORA\\DEBUG ("));
}

}  // namespace
}  // namespace host_test
