#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"

namespace host_test {
namespace {

using testing::HasSubstr;

// The terminal redraws its output, so only its final contents are compared.
class WindowsTerminal : public testing::Test {
  protected:
    void SetUp() override {
        if (!SystemHasTerminals()) {
            GTEST_SKIP() << "a system without pseudo-terminals";
        }
    }

    const TemporaryFolder folder;
    const std::string video = folder.Write("video.y4m", Y4mStream(16, 16, 20));
};

TEST_F(WindowsTerminal, ShowsABar) {
    HostProcess process({.arguments = PlayCommand(video, {}), .errorsToTerminal = true});
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("of 20 frames"));
    EXPECT_THAT(run.errors, HasSubstr(" %  "));
    EXPECT_THAT(run.errors, HasSubstr("plate-host: summary"));
    EXPECT_EQ(run.output, "");
}

TEST_F(WindowsTerminal, ShowsCharactersOfAnyCodePage) {
    HostProcess process({.arguments = {"play", "\xD0\x96\xE7\x89\x8C.y4m"}, .errorsToTerminal = true});
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.errors, HasSubstr("cannot open \"\xD0\x96\xE7\x89\x8C"));
}

}  // namespace
}  // namespace host_test
