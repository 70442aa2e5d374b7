#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"

namespace host_test {
namespace {

TEST(WindowsPlugin, DependenciesAreFoundInTheLibrarysFolder) {
    const TemporaryFolder folder;
    folder.MakeFolder("beside");
    // A library that needs the one in its folder, and the latter under the name by which it is found.
    const std::string engine = folder.Copy(HOST_TEST_PLUGIN, "beside/dependent.dll");
    folder.Copy(HOST_TEST_ENGINE_TWO, "beside/Recon64.dll");
    const Finished run = RunHost({"info", "--plugin", HOST_TEST_PLUGIN, "--engine", engine});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.output, testing::HasSubstr("contracts of a detector"));
}

}  // namespace
}  // namespace host_test
