#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/server/server_process_fixture.h"

namespace {

using servers::Running;
using testing::ElementsAre;
namespace fs = std::filesystem;

using LinuxServerProcess = ServerProcess;

TEST_F(LinuxServerProcess, LeavesNoZombie) {
    StartPolling();
    for (int round = 0; round < 3; ++round) {
        const pid_t server = TheServer();
        servers::Kill(server);
        ASSERT_TRUE(WaitUntil([server] { return !Running().contains(server) && Running().size() == 1; }));
    }
    EXPECT_EQ(servers::Zombies(), 0);
    launcher->Stop();
    EXPECT_EQ(servers::Zombies(), 0);
}

TEST_F(LinuxServerProcess, InheritsNoDescriptorOfTheHost) {
    int pipe[2] = {};
    ASSERT_EQ(::pipe(pipe), 0);  // both ends would be inherited by a plain child
    const int file = ::open("/proc/self/status", O_RDONLY);
    ASSERT_GE(file, 0);
    StartPolling();
    const pid_t server = TheServer();
    ASSERT_NE(server, 0);
    const fs::path folder = "/proc/" + std::to_string(server) + "/fd";
    // Between fork and exec a child still has its parent's descriptors.
    EXPECT_TRUE(WaitUntil([&] {
        return std::all_of(fs::directory_iterator(folder), fs::directory_iterator(), [](const auto& entry) {
            const std::string name = entry.path().filename();
            std::error_code gone;
            return (name == "0" || name == "1" || name == "2") && fs::read_symlink(entry.path(), gone) == "/dev/null";
        });
    }));
    for (const int descriptor : {pipe[0], pipe[1], file}) {
        ::close(descriptor);
    }
}

TEST_F(LinuxServerProcess, ForeignServerReplacesOursAndIsEndedByStop) {
    StartPolling();
    const pid_t ours = TheServer();
    ASSERT_NE(ours, 0);
    const auto stranger = servers::StartForeignServer();
    ASSERT_TRUE(WaitUntil([] { return Running().size() == 2; }));
    // The list is ordered by id, and the last process is adopted.
    ASSERT_GT(stranger->Id(), ours);
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Stop();
    EXPECT_THAT(Running(), ElementsAre(ours));
    EXPECT_NE(stranger->Wait().signal, 0) << "only the test may reap it";
}

TEST_F(LinuxServerProcess, StopEndsAServerThatBlocksAllSignals) {
    ExpectStopEndsIt("blocks-signals");
}

}  // namespace
