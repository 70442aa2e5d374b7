#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"

namespace host_test {
namespace {

using testing::HasSubstr;

TEST(LinuxTerminal, ShowsABarThatIsRemovedAtTheEnd) {
    if (!SystemHasTerminals()) {
        GTEST_SKIP() << "a changed root without pseudo-terminals";
    }
    const TemporaryFolder folder;
    const std::string video = folder.Write("video.y4m", Y4mStream(16, 16, 20));
    HostProcess process({.arguments = PlayCommand(video, {}), .errorsToTerminal = true});
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("of 20 frames"));
    EXPECT_THAT(run.errors, HasSubstr("\033[K"));
    const std::size_t lastBar = run.errors.rfind("of 20 frames");
    EXPECT_THAT(run.errors.substr(lastBar), HasSubstr("\r\033[K")) << "removed before the summary";
}

}  // namespace
}  // namespace host_test
