// The error for snapshots in a program without a drawing library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"

namespace host_test {
namespace {

TEST(NoCairo, SnapshotsAreRefusedInOneLine) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("one.y4m", Y4mStream(16, 16, 1));
    std::vector<std::string> command = PlayCommand(video, {"test_event_every=1"});
    command.insert(command.end(), {"--snapshots", folder.Path("snapshots")});
    const Finished run = RunHost(command);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "plate-host: cannot write snapshots: this program was built without cairo\n");
}

}  // namespace
}  // namespace host_test
